// Configuration changes gathered in place of the daemon, so that they can be applied as one: a
// socket of the shell's own that the library's handlers are pointed at.
#ifndef SCHEDSH_CHANGE_GATHERING_H
#define SCHEDSH_CHANGE_GATHERING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "schedcli/platform/cmi.h"

namespace schedsh {

using Record = std::vector<uint8_t>;

// Every change record (job, schedule, schedule address) that reaches the socket is kept and
// answered with success; every other request (a credential look-up, say) is passed on to the
// daemon and its answer handed back, so the handlers behave as they do against the daemon.
class ChangeGathering {
 public:
  ChangeGathering() = default;
  ChangeGathering(const ChangeGathering &) = delete;
  ChangeGathering &operator=(const ChangeGathering &) = delete;
  ~ChangeGathering() { finish(); }

  // Opens the socket in a private directory and starts answering; false with `why` when it
  // cannot. `daemon` is used for what is passed on, from the gathering thread only, while the
  // gathering lasts.
  bool start(cmi_session *daemon, std::string *why);
  // The session for the handlers to use; null before start.
  cmi_session *session() const { return session_; }
  std::size_t count();
  // Stops answering, removes the socket and hands over the records, in the order they came.
  std::vector<Record> finish();

 private:
  void serve();
  void answer(int connection);

  cmi_session *daemon_ = nullptr;
  cmi_session *session_ = nullptr;
  std::string directory_;
  int listen_fd_ = -1;
  int stop_fd_ = -1;
  std::thread thread_;
  std::mutex mutex_;
  std::vector<Record> records_;
};

// Whether a configuration request record is a change that an apply carries.
bool is_applied_change(uint32_t service, uint32_t opcode, const void *payload, std::size_t length);

}  // namespace schedsh

#endif

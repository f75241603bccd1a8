// The gathering socket: a thread that takes one connection at a time, as the handlers make them.
#include "change_gathering.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "cli/request.h"
#include "schedcli/protocol.h"
#include "schedcli/wire.h"

namespace schedsh {

bool is_applied_change(uint32_t service, uint32_t opcode, const void *payload, std::size_t length) {
  if (service != SCH_SERVICE_CONFIG || opcode != SCH_OPCODE_CONFIG || !payload) return false;
  sch_request_header header;
  if (sch_wire_decode(SCH_WIRE_REQUEST_HEADER, payload, length, &header) != 0) return false;
  return sch_request_type_applies(header.type) != 0;
}

bool ChangeGathering::start(cmi_session *daemon, std::string *why) {
  const char *base = std::getenv("XDG_RUNTIME_DIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/schedsh-XXXXXX";
  if (!mkdtemp(pattern.data())) {
    *why = std::string("cannot make a private directory: ") + std::strerror(errno);
    return false;
  }
  directory_ = pattern;
  std::string path = directory_ + "/changes.sock";
  stop_fd_ = eventfd(0, EFD_CLOEXEC);
  if (stop_fd_ < 0) {
    *why = std::string("cannot make an event descriptor: ") + std::strerror(errno);
    finish();
    return false;
  }
  if (uint32_t status = cmi_server_listen(path.c_str(), &listen_fd_)) {
    *why = "cannot listen on " + path + " (" + std::to_string(status) + ")";
    listen_fd_ = -1;
    finish();
    return false;
  }
  session_ = cmi_session_open(path.c_str());
  if (!session_) {
    *why = "cannot open a session on " + path;
    finish();
    return false;
  }
  daemon_ = daemon;
  thread_ = std::thread([this] { serve(); });
  return true;
}

std::size_t ChangeGathering::count() {
  std::lock_guard lock(mutex_);
  return records_.size();
}

void ChangeGathering::serve() {
  pollfd watched[2] = {{listen_fd_, POLLIN, 0}, {stop_fd_, POLLIN, 0}};
  while (true) {
    if (poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[1].revents) return;
    int connection = -1;
    if (cmi_server_accept(listen_fd_, &connection) != 0) continue;
    answer(connection);
    close(connection);
  }
}

void ChangeGathering::answer(int connection) {
  // The handler sends right after it connects, and closes once answered; a connection that
  // stays silent this long is given up.
  constexpr int kQuietMilliseconds = 5000;
  pollfd watched{connection, POLLIN, 0};
  while (poll(&watched, 1, kQuietMilliseconds) > 0) {
    cmi_request request{};
    uint32_t received = cmi_server_receive(connection, &request);
    if (received == CMI_NOTHING_WAITING) continue;
    if (received != 0) {
      cmi_request_release(&request);
      return;
    }
    uint32_t status = 0;
    void *reply = nullptr;
    uint32_t length = request.length;
    if (is_applied_change(request.service, request.opcode, request.payload, request.length)) {
      const auto *bytes = static_cast<const uint8_t *>(request.payload);
      std::lock_guard lock(mutex_);
      records_.emplace_back(bytes, bytes + request.length);
      length = 0;
    } else {
      status = cmi_req_resp(request.service, request.opcode, request.payload, &reply, &length, nullptr, nullptr, 0,
                            daemon_, 0);
    }
    cmi_server_reply(connection, request.token, status, reply, reply ? length : 0);
    std::free(reply);
    cmi_request_release(&request);
  }
}

std::vector<Record> ChangeGathering::finish() {
  if (thread_.joinable()) {
    uint64_t one = 1;
    if (write(stop_fd_, &one, sizeof one) != sizeof one) {
      // An eventfd takes a write unless its counter is full, which one write cannot make it.
    }
    thread_.join();
  }
  cmi_session_close(session_);
  session_ = nullptr;
  if (listen_fd_ >= 0) close(listen_fd_);
  if (stop_fd_ >= 0) close(stop_fd_);
  listen_fd_ = stop_fd_ = -1;
  if (!directory_.empty()) {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
    directory_.clear();
  }
  std::lock_guard lock(mutex_);
  std::vector<Record> records;
  records.swap(records_);
  return records;
}

}  // namespace schedsh

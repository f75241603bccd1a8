// The daemon: its role, the loop, the model, the stores and the socket server, brought up and torn
// down as named, checked steps. One per process (the library's live database is global).
#ifndef SCHEDD_CORE_DAEMON_H
#define SCHEDD_CORE_DAEMON_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "config/model.h"
#include "core/clock.h"
#include "core/event_loop.h"
#include "ipc/reply.h"
#include "options.h"

namespace schedd {

class Runner;
class Server;

// What start() brings up besides the configuration; in-process tests leave parts out.
struct StartParts {
  bool socket = true;  // without it, requests come through handle()
  bool runner = true;  // without it, no schedule fires
  bool wall_timer = true;  // without it, the runner fires only when told to (fire_due)
};

class Daemon {
 public:
  // `clock` must outlive the daemon.
  Daemon(const Options &options, const Clock &clock);
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;
  // Stops what start() brought up.
  ~Daemon();

  // Every start-up step in order, each checked. False with `error` naming the step that failed and
  // why; what earlier steps brought up is torn down again then.
  bool start(std::string *error, StartParts parts = {});
  // Serves until SIGTERM or SIGINT, or until stop_serving() is called.
  void run();
  void stop_serving();
  // The stop steps in reverse order of start; safe to call more than once.
  void stop();

  // Answers one request as the socket server would for `caller`.
  Reply handle(uint32_t service, uint32_t opcode, RequestBytes request, const Caller &caller);

  Model &model() { return model_; }
  Runner *runner() { return runner_.get(); }
  EventLoop &loop() { return loop_; }
  const Clock &clock() const { return clock_; }
  const std::string &socket_path() const;
  bool stateless_start() const { return stateless_; }

 private:
  struct Step {
    const char *name;
    bool (Daemon::*start)(std::string *error);
    void (Daemon::*stop)();
  };

  bool set_directories(std::string *error);
  bool open_debug_output(std::string *error);
  void close_debug_output();
  bool lock_instance(std::string *error);
  void unlock_instance();
  bool restore(std::string *error);
  void release();
  bool mark_running_stores_whole(std::string *error);
  bool start_runner(std::string *error);
  void stop_runner();
  bool start_server(std::string *error);
  void stop_server();

  const Options options_;
  const Clock &clock_;
  EventLoop loop_;
  Model model_;
  std::unique_ptr<Runner> runner_;
  std::unique_ptr<Server> server_;
  std::vector<const Step *> started_;
  std::FILE *debug_stream_ = nullptr;
  int lock_fd_ = -1;
  bool stateless_ = false;
  bool wall_timer_ = true;
};

}  // namespace schedd

#endif

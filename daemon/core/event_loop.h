// The daemon's one GLib main loop: every descriptor, timer, child watch and signal of the daemon is
// a source of its context, and one thread runs it.
#ifndef SCHEDD_CORE_EVENT_LOOP_H
#define SCHEDD_CORE_EVENT_LOOP_H

#include <glib.h>

#include <functional>

namespace schedd {

class EventLoop {
 public:
  EventLoop();
  EventLoop(const EventLoop &) = delete;
  EventLoop &operator=(const EventLoop &) = delete;
  ~EventLoop();

  GMainContext *context() const { return context_; }

  // SIGTERM and SIGINT call `on_stop` (once per signal) on the loop's thread.
  void watch_stop_signals(std::function<void()> on_stop);
  // Runs until quit() is called.
  void run();
  void quit();
  // Runs what is ready without waiting; for tests. True when something ran.
  bool iterate();
  // Runs `task` on the loop's thread at its next turn: for work that must not run inside the
  // callback that asks for it.
  void post(std::function<void()> task);

 private:
  static gboolean on_signal(gpointer self);

  GMainContext *context_;
  GMainLoop *loop_;
  std::function<void()> on_stop_;
  guint signal_watches_[2] = {};
};

}  // namespace schedd

#endif

// The daemon's main loop.
#include "core/event_loop.h"

#include <glib-unix.h>
#include <signal.h>

namespace schedd {

// The default context: GLib's child watches and unix signal sources of the loop's thread attach
// there.
EventLoop::EventLoop() : context_(g_main_context_default()), loop_(g_main_loop_new(context_, FALSE)) {}

EventLoop::~EventLoop() {
  for (guint watch : signal_watches_) {
    if (watch) g_source_remove(watch);
  }
  g_main_loop_unref(loop_);
}

void EventLoop::watch_stop_signals(std::function<void()> on_stop) {
  on_stop_ = std::move(on_stop);
  if (signal_watches_[0]) return;
  signal_watches_[0] = g_unix_signal_add(SIGTERM, on_signal, this);
  signal_watches_[1] = g_unix_signal_add(SIGINT, on_signal, this);
}

gboolean EventLoop::on_signal(gpointer self) {
  auto *loop = static_cast<EventLoop *>(self);
  if (loop->on_stop_) loop->on_stop_();
  return G_SOURCE_CONTINUE;
}

void EventLoop::run() { g_main_loop_run(loop_); }

void EventLoop::quit() { g_main_loop_quit(loop_); }

bool EventLoop::iterate() { return g_main_context_iteration(context_, FALSE) != 0; }

void EventLoop::post(std::function<void()> task) {
  GSource *source = g_idle_source_new();
  g_source_set_callback(
      source,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()> *>(data))();
        return G_SOURCE_REMOVE;
      },
      new std::function<void()>(std::move(task)), [](gpointer data) { delete static_cast<std::function<void()> *>(data); });
  g_source_attach(source, context_);
  g_source_unref(source);
}

}  // namespace schedd

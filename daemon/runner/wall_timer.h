// The wall-clock alarm of the runner: one CLOCK_REALTIME timerfd armed at an absolute instant, which
// also says when the clock is set; and a watch on the system's time zone file.
#ifndef SCHEDD_RUNNER_WALL_TIMER_H
#define SCHEDD_RUNNER_WALL_TIMER_H

#include <glib.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>

namespace schedd {

class WallTimer {
 public:
  // `on_due` when the instant armed has come; `on_clock_changed` when the system clock was set or
  // the time zone file changed (the instant armed is then cancelled: arm again).
  WallTimer(GMainContext *context, std::function<void()> on_due, std::function<void()> on_clock_changed);
  WallTimer(const WallTimer &) = delete;
  WallTimer &operator=(const WallTimer &) = delete;
  ~WallTimer();

  // False when the timer could not be made (reported); the runner then cannot fire.
  bool open();
  // Arms at `instant` and `after` (an instant past fires at once), or disarms with nullopt.
  void arm(std::optional<std::time_t> instant, std::chrono::milliseconds after = {});

 private:
  static gboolean on_timer(gint fd, GIOCondition condition, gpointer self);
  static gboolean on_zone(gint fd, GIOCondition condition, gpointer self);
  void rearm();

  GMainContext *context_;
  std::function<void()> on_due_;
  std::function<void()> on_clock_changed_;
  int timer_fd_ = -1;
  int zone_fd_ = -1;
  GSource *timer_source_ = nullptr;
  GSource *zone_source_ = nullptr;
  std::optional<std::time_t> armed_;
  std::chrono::milliseconds after_{};
};

}  // namespace schedd

#endif

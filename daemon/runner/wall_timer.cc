// The wall-clock alarm and the time zone watch.
#include "runner/wall_timer.h"

#include <algorithm>

#include <glib-unix.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "core/debug.h"
#include "schedcli/platform/syslog.h"

namespace schedd {

namespace {

// /etc/localtime is replaced (renamed over, or relinked) rather than written: the directory is
// watched for a new entry of that name.
constexpr const char *kZoneDirectory = "/etc";
constexpr const char *kZoneFile = "localtime";

GSource *watch(GMainContext *context, int fd, GUnixFDSourceFunc handler, gpointer self) {
  GSource *source = g_unix_fd_source_new(fd, G_IO_IN);
  g_source_set_callback(source, G_SOURCE_FUNC(handler), self, nullptr);
  g_source_attach(source, context);
  return source;
}

void drop(GSource *&source, int &fd) {
  if (source) {
    g_source_destroy(source);
    g_source_unref(source);
    source = nullptr;
  }
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

WallTimer::WallTimer(GMainContext *context, std::function<void()> on_due, std::function<void()> on_clock_changed)
    : context_(context), on_due_(std::move(on_due)), on_clock_changed_(std::move(on_clock_changed)) {}

WallTimer::~WallTimer() {
  drop(timer_source_, timer_fd_);
  drop(zone_source_, zone_fd_);
}

bool WallTimer::open() {
  timer_fd_ = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
  if (timer_fd_ < 0) {
    nost_syslog(LOG_ERR, "schedd: no wall-clock timer, schedules cannot fire: %s", std::strerror(errno));
    return false;
  }
  timer_source_ = watch(context_, timer_fd_, on_timer, this);
  // Without the watch, a zone change is noticed at the next clock change or fire only.
  zone_fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (zone_fd_ >= 0 && inotify_add_watch(zone_fd_, kZoneDirectory, IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE) >= 0) {
    zone_source_ = watch(context_, zone_fd_, on_zone, this);
  } else if (zone_fd_ >= 0) {
    close(zone_fd_);
    zone_fd_ = -1;
  }
  return true;
}

void WallTimer::arm(std::optional<std::time_t> instant, std::chrono::milliseconds after) {
  armed_ = instant;
  after_ = std::clamp(after, std::chrono::milliseconds(0), std::chrono::milliseconds(999));
  rearm();
}

void WallTimer::rearm() {
  if (timer_fd_ < 0) return;
  itimerspec setting{};
  int flags = TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET;
  if (armed_) {
    // An instant of 0 would disarm the timer; anything past fires at once.
    setting.it_value.tv_sec = *armed_ > 0 ? *armed_ : 1;
    setting.it_value.tv_nsec = static_cast<long>(after_.count()) * 1000000;
  }
  if (timerfd_settime(timer_fd_, flags, &setting, nullptr) != 0) {
    nost_syslog(LOG_ERR, "schedd: cannot arm the wall-clock timer: %s", std::strerror(errno));
  }
}

gboolean WallTimer::on_timer(gint fd, GIOCondition, gpointer self) {
  auto *timer = static_cast<WallTimer *>(self);
  uint64_t expirations = 0;
  ssize_t got = read(fd, &expirations, sizeof expirations);
  if (got < 0 && errno == ECANCELED) {
    debug(kDebugRequest, "the system clock was set");
    timer->on_clock_changed_();
    return G_SOURCE_CONTINUE;
  }
  if (got == sizeof expirations) timer->on_due_();
  return G_SOURCE_CONTINUE;
}

gboolean WallTimer::on_zone(gint fd, GIOCondition, gpointer self) {
  alignas(inotify_event) char events[4096];
  bool zone_changed = false;
  ssize_t got;
  while ((got = read(fd, events, sizeof events)) > 0) {
    for (char *at = events; at < events + got;) {
      auto *event = reinterpret_cast<inotify_event *>(at);
      if (event->len > 0 && std::strcmp(event->name, kZoneFile) == 0) zone_changed = true;
      at += sizeof(inotify_event) + event->len;
    }
  }
  if (zone_changed) {
    debug(kDebugRequest, "the time zone changed");
    tzset();
    static_cast<WallTimer *>(self)->on_clock_changed_();
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace schedd

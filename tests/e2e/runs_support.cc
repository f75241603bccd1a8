// Shared by the tests of job runs on a shifted clock.
#include "runs_support.h"

#include <thread>

namespace e2e {

ShiftedClock::ShiftedClock(std::chrono::seconds lead) {
  // A second more: the real clock is part way through its current second.
  std::time_t real = std::time(nullptr) + 1;
  shift_ = (60 - (real + lead.count()) % 60) % 60;
  minute_ = real + shift_ + lead.count();
}

std::time_t ShiftedClock::now() const { return std::time(nullptr) + shift_; }

Environment ShiftedClock::environment(Environment base) const {
  std::string clock = std::string(E2E_FAKETIME_LIBRARY) + ":" + E2E_KEEP_CLOCK_LIBRARY;
  std::string more = base["LD_PRELOAD"];
  base["TZ"] = "UTC";
  base["FAKETIME"] = "+" + std::to_string(shift_);
  base["FAKETIME_FMT"] = "";
  base["DONT_FAKE_MONOTONIC"] = "1";
  base["FAKETIME_DONT_FAKE_MONOTONIC"] = "1";
  base["KEEP_CLOCK_PRELOAD"] = clock;
  preload(base, more.empty() ? clock : clock + ":" + more);
  return base;
}

void ShiftedClock::sleep_until(std::time_t instant) const {
  std::this_thread::sleep_until(std::chrono::system_clock::from_time_t(instant - shift_));
}

bool ShiftedClock::wait_until(std::time_t deadline, const std::function<bool()> &done) const {
  while (!done()) {
    if (now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

std::string start_text(std::time_t instant) {
  tm utc{};
  gmtime_r(&instant, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y:%m:%d:%H:%M", &utc);
  return text;
}

}  // namespace e2e

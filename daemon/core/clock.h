// The daemon's clock: wall-clock time for what the operator sees and schedules, a monotonic count
// for deadlines. Tests put a clock of their own in its place, so that nothing the daemon decides
// from time waits for real time to pass.
#ifndef SCHEDD_CORE_CLOCK_H
#define SCHEDD_CORE_CLOCK_H

#include <cstdint>
#include <ctime>

namespace schedd {

class Clock {
 public:
  virtual ~Clock() = default;
  // Seconds since the epoch, as time() gives them.
  virtual std::time_t wall_seconds() const = 0;
  // Milliseconds of a clock that never steps: only differences mean anything.
  virtual int64_t monotonic_ms() const = 0;
};

// The system's clocks.
class SystemClock final : public Clock {
 public:
  std::time_t wall_seconds() const override;
  int64_t monotonic_ms() const override;
};

// A clock that moves only when told to: for tests.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(std::time_t wall) : wall_(wall) {}
  std::time_t wall_seconds() const override { return wall_; }
  int64_t monotonic_ms() const override { return monotonic_; }
  // Moves both clocks forward.
  void advance(int64_t seconds) {
    wall_ += seconds;
    monotonic_ += seconds * 1000;
  }
  // Steps the wall clock only, either way, as setting the system's clock does.
  void set_wall(std::time_t wall) { wall_ = wall; }

 private:
  std::time_t wall_;
  int64_t monotonic_ = 0;
};

}  // namespace schedd

#endif

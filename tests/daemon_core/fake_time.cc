// Test support: time() as the library calls it, moved by the tests' clock (0: the real one). The
// library reads the clock through time() (its next-run computation among others); defined here, in
// the test program, it takes the place of the C library's for every caller in the process.
#include <ctime>

namespace {
std::time_t fake_now = 0;
}  // namespace

void set_fake_time(std::time_t now) { fake_now = now; }

extern "C" __attribute__((visibility("default"))) std::time_t time(std::time_t *out) {
  std::time_t now = fake_now;
  if (now == 0) {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    now = real.tv_sec;
  }
  if (out) *out = now;
  return now;
}

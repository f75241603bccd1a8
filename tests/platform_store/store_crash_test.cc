// Durability under kill -9: a child writes and reports each finished write through a pipe; it is
// killed at random moments, and every write it reported must be in the store when it reopens.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <thread>

#include "store_test_support.h"

namespace store_test {
namespace {

using Model = std::map<std::string, std::string>;

// Operation n of an endless sequence that the child performs and the parent replays on its
// model: mostly single stores, some deletes, and batches of 20 that must land whole or not at all.
struct Operation {
  bool erase = false;
  bool batch = false;
  Records records;
};

Operation operation(uint64_t n) {
  uint64_t r = (n + 1) * 0x9E3779B97F4A7C15ull;
  r ^= r >> 29;
  auto value = [](uint64_t seed) { return std::string(1 + seed % 1024, static_cast<char>('a' + seed % 26)); };
  Operation op;
  op.erase = r % 10 == 1 || r % 10 == 2;
  op.batch = r % 10 == 0;
  for (uint32_t j = 0; j < (op.batch ? 20u : 1u); j++) {
    op.records.emplace_back(key_text(make_key(op.batch ? 2 : 1, (r >> 8) % 512 + j)), value((r >> 16) + j));
  }
  return op;
}

void apply(Model &model, uint64_t n) {
  Operation op = operation(n);
  for (auto &[key, value] : op.records) {
    if (op.erase) {
      model.erase(key);
    } else {
      model[key] = value;
    }
  }
}

uint32_t perform(pss2_handle handle, uint64_t n) {
  Operation op = operation(n);
  if (op.batch && pss2_batch_begin(handle) != 0) return 1;
  for (auto &[key_bytes, value_bytes] : op.records) {
    pss2_datum key = datum(key_bytes), value = datum(value_bytes);
    uint32_t status = op.erase ? pss2_delete(handle, &key, 1) : pss2_store(handle, &key, &value);
    if (status != 0 && status != PSS2_ERR_NO_KEY) return status;
  }
  return op.batch ? pss2_batch_commit(handle) : 0;
}

[[noreturn]] void child_writes(const std::string &path, uint64_t first, int report) {
  pss2_handle handle = open_store(path, PSS2_MODE_UPDATE);
  for (uint64_t n = first; handle; n++) {
    if (perform(handle, n) != 0 || write(report, &n, sizeof n) != sizeof n) break;
  }
  _exit(2);
}

// How many kills to survive: 250, or fewer where SCHED_STORE_CRASH_KILLS says so (under
// emulation every write is many times slower, and the run keeps the same wall-clock bound).
int kill_count() {
  const char *text = std::getenv("SCHED_STORE_CRASH_KILLS");
  char *end = nullptr;
  long count = text ? std::strtol(text, &end, 10) : 0;
  return count > 0 && count <= 250 && *end == '\0' ? static_cast<int>(count) : 250;
}

TEST(StoreCrash, EveryReportedWriteSurvivesKillNine) {
  TempDir dir;
  const std::string path = dir.file("s");
  pss2_close(open_store(path, PSS2_MODE_CREATE));
  Model model;
  uint64_t next = 0;  // the first operation not known to be in the store
  int in_flight_landed = 0;
  std::mt19937 random(20240611);
  auto started = std::chrono::steady_clock::now();

  const int kills = kill_count();
  for (int kill_number = 0; kill_number < kills; kill_number++) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) child_writes(path, next, fds[1]);
    close(fds[1]);
    // Kill after a random number of finished writes plus a random part of the next one, so that
    // the kills fall anywhere in a write however slow the disk is.
    uint64_t reported = 0;
    pollfd report{fds[0], POLLIN, 0};
    for (uint32_t wait_for = random() % 6; wait_for > 0 && poll(&report, 1, 5000) == 1; wait_for--) {
      ASSERT_EQ(read(fds[0], &reported, sizeof reported), static_cast<ssize_t>(sizeof reported));
      ASSERT_EQ(reported, next);
      apply(model, next++);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    kill(child, SIGKILL);
    int wait_status = 0;
    ASSERT_EQ(waitpid(child, &wait_status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(wait_status)) << "the child failed a write";
    while (read(fds[0], &reported, sizeof reported) == sizeof reported) {
      ASSERT_EQ(reported, next);
      apply(model, next++);
    }
    close(fds[0]);

    // Every reported write is there, and at most the one under way besides, whole.
    Records records = contents(path);
    Model found(records.begin(), records.end());
    if (found != model) {
      apply(model, next++);
      in_flight_landed++;
      ASSERT_EQ(found, model) << "after kill " << kill_number << ", operation " << next - 1;
    }
  }
  RecordProperty("operations", static_cast<int>(next));
  RecordProperty("in_flight_landed", in_flight_landed);
  EXPECT_GT(next, 2u * kills) << "the child hardly wrote anything";
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
}

}  // namespace
}  // namespace store_test

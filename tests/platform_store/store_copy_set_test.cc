// Copies to startup as one step: a crash at any instant leaves the old or the new startup pair
// whole once start-up recovery has run, and recovery leaves no temporary file behind.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "schedcli/platform/codec.h"
#include "schedcli/platform/sysmgr.h"
#include "store_test_support.h"

namespace store_test {
namespace {

namespace fs = std::filesystem;

const Key kGenerationKey = make_key(4, 0, "generation");

class StoreCopySet : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(sysmgr_dirs_set(dir_.file("state").c_str(), dir_.file("run").c_str()), 0); }
  void TearDown() override {
    pss2_fault_clear_all();
    sysmgr_dirs_clear();
  }
  std::string running(const std::string &name) { return dir_.file("run/" + name); }
  std::string startup(const std::string &name) { return dir_.file("state/startup/" + name); }
  std::string debug(const std::string &name) { return dir_.file("state/debug/" + name); }
  std::string intent() { return startup("scheduler_copy_intent"); }

  // The generation record of a store; "" when the store or the record is absent.
  static std::string generation(const std::string &path) {
    for (auto &[key, value] : contents(path)) {
      if (key == key_text(kGenerationKey)) return value;
    }
    return "";
  }
  // Every file in the three directories that is neither a store nor its lock file.
  std::vector<std::string> leftovers() {
    std::vector<std::string> found;
    for (const char *directory : {"run", "state/startup", "state/debug"}) {
      for (const auto &entry : fs::directory_iterator(dir_.file(directory))) {
        std::string name = entry.path().filename();
        if (!name.starts_with("scheduler_") || name.find(".tmp.") != std::string::npos || name.ends_with("intent")) {
          found.push_back(std::string(directory) + "/" + name);
        }
      }
    }
    return found;
  }
  // Writes generation `n` into both running stores, with bulk records so that a copy takes long
  // enough for kills to land inside it.
  static void write_generation(pss2_handle config, pss2_handle debug_config, uint64_t n) {
    for (pss2_handle handle : {config, debug_config}) {
      ASSERT_EQ(pss2_batch_begin(handle), 0u);
      for (uint32_t i = 0; i < 300; i++) put(handle, make_key(1, i), std::string(1000, static_cast<char>('a' + n % 26)));
      put(handle, kGenerationKey, std::to_string(n));
      ASSERT_EQ(pss2_batch_commit(handle), 0u);
    }
  }
  TempDir dir_;
};

// The commit record's bytes, as a crash after the commit would leave them.
std::vector<uint8_t> intent_bytes(const std::vector<std::pair<std::string, std::string>> &renames) {
  std::vector<uint8_t> bytes = {'S', 'C', 'H', 'E', 'D', 'C', 'P', 'I', 0, 0, 0, 1, 0, 0, 0,
                                static_cast<uint8_t>(renames.size())};
  auto text = [&](const std::string &path) {
    uint8_t length[4];
    bigendian::put_u32(length, static_cast<uint32_t>(path.size()));
    bytes.insert(bytes.end(), length, length + 4);
    bytes.insert(bytes.end(), path.begin(), path.end());
  };
  for (auto &[temporary, target] : renames) {
    text(temporary);
    text(target);
  }
  uint32_t hash = 2166136261u;
  for (uint8_t byte : bytes) hash = (hash ^ byte) * 16777619u;
  uint8_t sum[4];
  bigendian::put_u32(sum, hash);
  bytes.insert(bytes.end(), sum, sum + 4);
  return bytes;
}

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

// A crash after the commit record, with the first rename done and the second not: recovery does
// the second, removes the record and every stray temporary, and nothing else.
TEST_F(StoreCopySet, RecoveryFinishesACommittedCopyAndClearsStrayTemporaries) {
  pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_CREATE);
  pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_CREATE);
  write_generation(config, debug_config, 1);
  ASSERT_EQ(pss2_snapshot(config, debug_config), 0u);
  write_generation(config, debug_config, 2);
  pss2_close(config);
  pss2_close(debug_config);

  const std::string debug_temporary = debug("scheduler_debug_startup.tmp.4000000.7");
  fs::copy_file(running("scheduler_runtime"), startup("scheduler_startup"), fs::copy_options::overwrite_existing);
  fs::copy_file(running("scheduler_debug_runtime"), debug_temporary);
  write_file(intent(), intent_bytes({{startup("scheduler_startup.tmp.4000000.6"), startup("scheduler_startup")},
                                     {debug_temporary, debug("scheduler_debug_startup")}}));
  for (const std::string &stray : {startup("scheduler_startup.tmp.12.1"), running("scheduler_runtime.tmp.3.9"),
                                   debug("x.tmp.77.1")}) {
    write_file(stray, {1, 2, 3});
  }
  const std::string kept[] = {startup("notes.tmp"), startup("a.tmp.12"), startup("b.tmp.x.1"), debug("c.tmp.1.2x")};
  for (const std::string &file : kept) write_file(file, {1});

  EXPECT_EQ(pss2_startup_recover(), 0u);
  EXPECT_EQ(generation(startup("scheduler_startup")), "2");
  EXPECT_EQ(generation(debug("scheduler_debug_startup")), "2");
  for (const std::string &file : kept) EXPECT_TRUE(fs::exists(file)) << file << " is no temporary of ours";
  for (const std::string &file : kept) fs::remove(file);
  EXPECT_EQ(leftovers(), std::vector<std::string>{});
  EXPECT_EQ(pss2_startup_recover(), 0u) << "nothing left to do is no failure";
}

// A record that does not check out is never followed: not when it is cut short, not when it names
// a target outside the store directories.
TEST_F(StoreCopySet, DamagedOrForeignRecordIsRemovedUnused) {
  pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_CREATE);
  pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_CREATE);
  write_generation(config, debug_config, 1);
  ASSERT_EQ(pss2_snapshot(config, debug_config), 0u);
  pss2_close(config);
  pss2_close(debug_config);
  const std::string outside = dir_.file("elsewhere");
  fs::copy_file(running("scheduler_runtime"), outside + ".tmp.5.5");
  const std::string temporary = startup("scheduler_startup.tmp.5.5");
  fs::copy_file(running("scheduler_runtime"), temporary);

  std::vector<uint8_t> good = intent_bytes({{temporary, startup("scheduler_startup")}});
  std::vector<uint8_t> foreign = intent_bytes({{outside + ".tmp.5.5", outside}});
  std::vector<uint8_t> mismatched = intent_bytes({{startup("other.tmp.5.5"), startup("scheduler_startup")}});
  std::vector<uint8_t> flipped = good;
  flipped[20] ^= 1;
  for (const auto &record : {std::vector<uint8_t>(good.begin(), good.end() - 1), flipped, foreign, mismatched}) {
    write_file(intent(), record);
    EXPECT_EQ(pss2_startup_recover(), PSS2_ERR_CORRUPT);
    EXPECT_FALSE(fs::exists(intent()));
    EXPECT_FALSE(fs::exists(outside));
    EXPECT_EQ(generation(startup("scheduler_startup")), "1");
    fs::copy_file(running("scheduler_runtime"), temporary, fs::copy_options::overwrite_existing);
  }
  EXPECT_TRUE(fs::exists(outside + ".tmp.5.5")) << "recovery removes temporaries only in its directories";
}

// A child copies generation after generation to startup and is killed at random instants; after
// each kill, recovery must leave a startup pair of one generation, no older than the last copy
// the child finished and no newer than the one under way, and not one temporary file.
TEST_F(StoreCopySet, KilledCopyLeavesTheOldOrTheNewPairWhole) {
  {
    pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_CREATE);
    pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_CREATE);
    write_generation(config, debug_config, 0);
    ASSERT_EQ(pss2_snapshot(config, debug_config), 0u);
    pss2_close(config);
    pss2_close(debug_config);
  }
  uint64_t finished = 0;  // the last generation the child reported copied
  int rolled_forward = 0, new_pair = 0;
  std::mt19937 random(20261124);
  for (int kill_number = 0; kill_number < 40; kill_number++) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(fds[0]);
      pss2_handle config = open_store(running("scheduler_runtime"), PSS2_MODE_UPDATE);
      pss2_handle debug_config = open_store(running("scheduler_debug_runtime"), PSS2_MODE_UPDATE);
      for (uint64_t n = finished + 1; config && debug_config; n++) {
        write_generation(config, debug_config, n);
        if (pss2_snapshot(config, debug_config) != 0 || write(fds[1], &n, sizeof n) != sizeof n) break;
      }
      _exit(2);
    }
    close(fds[1]);
    uint64_t reported = 0;
    pollfd report{fds[0], POLLIN, 0};
    for (uint32_t wait_for = random() % 3; wait_for > 0 && poll(&report, 1, 5000) == 1; wait_for--) {
      ASSERT_EQ(read(fds[0], &reported, sizeof reported), static_cast<ssize_t>(sizeof reported));
      finished = reported;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 40000));
    kill(child, SIGKILL);
    int wait_status = 0;
    ASSERT_EQ(waitpid(child, &wait_status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(wait_status)) << "the child failed a copy";
    while (read(fds[0], &reported, sizeof reported) == sizeof reported) finished = reported;
    close(fds[0]);

    rolled_forward += fs::exists(intent());
    ASSERT_EQ(pss2_startup_recover(), 0u);
    std::string config = generation(startup("scheduler_startup"));
    ASSERT_EQ(generation(debug("scheduler_debug_startup")), config) << "after kill " << kill_number;
    uint64_t copied = std::stoull(config);
    ASSERT_TRUE(copied == finished || copied == finished + 1) << copied << " after " << finished;
    new_pair += copied == finished + 1;
    finished = copied;
    ASSERT_EQ(leftovers(), std::vector<std::string>{}) << "after kill " << kill_number;
  }
  RecordProperty("generations", static_cast<int>(finished));
  RecordProperty("rolled_forward", rolled_forward);
  RecordProperty("in_flight_landed", new_pair);
  EXPECT_GT(finished, 20u) << "the child hardly copied anything";
}

}  // namespace
}  // namespace store_test

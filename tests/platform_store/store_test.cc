// Record stores: opening, records and walks, batches, the failure seam, copies to startup and
// their recovery, durability under kill -9, and the service directories the stores live in.
#include <lmdb.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "schedcli/platform/codec.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/sysmgr.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using Records = std::vector<std::pair<std::string, std::string>>;

constexpr pss2_attributes kAttributes{40, 1024, 0x001E0000, 1, 2000};

// Big-endian type and sequence, then the name, as the scheduler lays out its 40-byte keys.
std::string make_key(uint32_t type, uint32_t sequence, const std::string &name = "job") {
  std::string key(40, '\0');
  for (int i = 0; i < 4; i++) {
    key[i] = static_cast<char>(type >> (24 - 8 * i));
    key[4 + i] = static_cast<char>(sequence >> (24 - 8 * i));
  }
  return key.replace(8, name.size(), name);
}
const std::string kGenerationKey = make_key(4, 0, "generation");

pss2_datum datum(const std::string &bytes) {
  return {const_cast<char *>(bytes.data()), static_cast<int32_t>(bytes.size())};
}
pss2_datum datum(const std::string &&) = delete;  // a descriptor of a temporary would dangle

pss2_handle open_store(const std::string &path, uint32_t mode, uint32_t *status = nullptr) {
  return pss2_open(path.c_str(), mode, 0xE0, 0, mode == PSS2_MODE_CREATE ? &kAttributes : nullptr, status);
}
uint32_t put(pss2_handle handle, const std::string &key, const std::string &value) {
  pss2_datum k = datum(key), v = datum(value);
  return pss2_store(handle, &k, &v);
}
uint32_t erase(pss2_handle handle, const std::string &key) {
  pss2_datum k = datum(key);
  return pss2_delete(handle, &k, 1);
}
std::string text_of(const pss2_datum &d) {
  return d.data ? std::string(static_cast<const char *>(d.data), d.length) : std::string();
}
std::string fetch(pss2_handle handle, const std::string &key, uint32_t *status) {
  pss2_datum k = datum(key);
  return text_of(pss2_fetch(handle, &k, status));
}

// Every record in walk order.
Records read_all(pss2_handle handle) {
  Records records;
  uint32_t status = 0, moved = pss2_move2location(&handle, 1, PSS2_LOCATION_FIRST, nullptr);
  for (; moved == 0; moved = pss2_move2location(&handle, 1, PSS2_LOCATION_NEXT, nullptr)) {
    records.emplace_back(text_of(pss2_getkey(handle, &status)), text_of(pss2_getvalue(handle, &status)));
    EXPECT_EQ(status, 0u);
  }
  EXPECT_EQ(moved, PSS2_ERR_END);
  return records;
}

// The records of the store at `path`, read through a handle of its own.
Records contents(const std::string &path) {
  pss2_handle handle = open_store(path, PSS2_MODE_READ);
  EXPECT_NE(handle, 0u) << path;
  Records records = read_all(handle);
  pss2_close(handle);
  return records;
}

// The generation record of a store; "" when the store or the record is absent.
std::string generation(const std::string &path) {
  for (auto &[key, value] : contents(path)) {
    if (key == kGenerationKey) return value;
  }
  return "";
}

// The service directories set on a fresh directory, a store `s` beside them, and the pair of
// running stores the daemon copies to startup together.
class Store : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(sysmgr_dirs_set(dir_.file("state").c_str(), dir_.file("run").c_str()), 0);
    handle_ = open_store(dir_.file("s"), PSS2_MODE_CREATE);
  }
  void TearDown() override {
    for (pss2_handle handle : {handle_, config_, debug_config_}) pss2_close(handle);
    pss2_fault_clear_all();
    sysmgr_dirs_clear();
  }
  std::string running(const std::string &name) { return dir_.file("run/" + name); }
  std::string startup(const std::string &name) { return dir_.file("state/startup/" + name); }
  std::string debug(const std::string &name) { return dir_.file("state/debug/" + name); }
  std::string intent() { return startup("scheduler_copy_intent"); }

  void open_pair(uint32_t mode) {
    config_ = open_store(running("scheduler_runtime"), mode);
    debug_config_ = open_store(running("scheduler_debug_runtime"), mode);
  }
  // Both running stores created at generation `n` and copied to startup, and left open.
  void save_pair(uint64_t n) {
    open_pair(PSS2_MODE_CREATE);
    write_generation(n);
    ASSERT_EQ(pss2_snapshot(config_, debug_config_), 0u);
  }
  void close_pair() {
    pss2_close(config_);
    pss2_close(debug_config_);
  }
  // Writes generation `n` into both running stores, with bulk records so that a copy takes long
  // enough for kills to land inside it.
  void write_generation(uint64_t n) {
    for (pss2_handle handle : {config_, debug_config_}) {
      ASSERT_EQ(pss2_batch_begin(handle), 0u);
      for (uint32_t i = 0; i < 300; i++) put(handle, make_key(1, i), std::string(1000, static_cast<char>('a' + n % 26)));
      put(handle, kGenerationKey, std::to_string(n));
      ASSERT_EQ(pss2_batch_commit(handle), 0u);
    }
  }
  // Every file in the three service directories that is neither a store nor its lock file.
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

  sch::testing::TempDir dir_;
  pss2_handle handle_ = 0, config_ = 0, debug_config_ = 0;
};

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

TEST(StoreOpen, FilesThatAreNotWholeStoresAreRefused) {
  sch::testing::TempDir dir;
  std::ofstream(dir.file("text")) << "not a store\n";
  std::ofstream(dir.file("empty")).flush();
  MDB_env *env = nullptr;  // a sound LMDB file without the store's own layout
  MDB_txn *txn = nullptr;
  MDB_dbi dbi = 0;
  MDB_val val{3, const_cast<char *>("abc")};
  ASSERT_EQ(mdb_env_create(&env), 0);
  ASSERT_EQ(mdb_env_open(env, dir.file("foreign").c_str(), MDB_NOSUBDIR, 0600), 0);
  ASSERT_EQ(mdb_txn_begin(env, nullptr, 0, &txn) || mdb_dbi_open(txn, nullptr, 0, &dbi) ||
                mdb_put(txn, dbi, &val, &val, 0) || mdb_txn_commit(txn),
            0);
  mdb_env_close(env);
  pss2_handle full = open_store(dir.file("cut"), PSS2_MODE_CREATE);
  for (uint32_t i = 0; i < 200; i++) put(full, make_key(1, i), std::string(900, 'x'));
  pss2_close(full);
  fs::copy_file(dir.file("cut"), dir.file("one-page"));
  ASSERT_EQ(truncate(dir.file("cut").c_str(), fs::file_size(dir.file("cut")) / 2), 0);
  ASSERT_EQ(truncate(dir.file("one-page").c_str(), 4096), 0);

  for (const char *name : {"text", "empty", "foreign", "cut", "one-page", "."}) {
    for (uint32_t mode : {PSS2_MODE_READ, PSS2_MODE_UPDATE}) {
      uint32_t status = 0;
      EXPECT_EQ(open_store(dir.file(name), mode, &status), 0u) << name;
      EXPECT_EQ(status, PSS2_ERR_CORRUPT) << name;
    }
  }
  EXPECT_EQ(fs::file_size(dir.file("empty")), 0);
}

TEST_F(Store, ClosedHandlesStayInvalidAndDestroyRemovesTheStore) {
  EXPECT_EQ(pss2_destroy(dir_.file("s").c_str()), PSS2_ERR_BUSY);
  EXPECT_EQ(pss2_close(handle_), 0u);
  EXPECT_EQ(pss2_close(handle_), PSS2_ERR_BAD_HANDLE);
  pss2_handle reused = open_store(dir_.file("s"), PSS2_MODE_UPDATE);  // takes the same slot
  EXPECT_EQ(put(handle_, make_key(1, 0), "x"), PSS2_ERR_BAD_HANDLE);
  uint32_t status = 0;
  EXPECT_EQ(pss2_getkey(handle_, &status).data, nullptr);
  EXPECT_EQ(status, PSS2_ERR_BAD_HANDLE);
  pss2_close(reused);
  EXPECT_EQ(pss2_destroy(dir_.file("s").c_str()), 0u);
  EXPECT_FALSE(fs::exists(dir_.file("s")) || fs::exists(dir_.file("s-lock")));
  EXPECT_EQ(pss2_destroy(dir_.file("s").c_str()), 0u);
}

// The daemon keeps its running, startup and debug stores open while snapshot copies are written
// beside them; a 32-bit process must have the address space for all of them at once.
TEST_F(Store, TheDaemonsStoresFitOpenTogetherInA32BitProcess) {
  pss2_close(handle_);
  std::vector<pss2_handle> handles;
  for (int i = 0; i < 10; i++) {
    uint32_t status = 1;
    handles.push_back(open_store(dir_.file("s" + std::to_string(i)), PSS2_MODE_CREATE, &status));
    ASSERT_EQ(status, 0u) << "store " << i;
    EXPECT_EQ(put(handles.back(), make_key(1, 0), "header"), 0u) << "store " << i;
  }
  for (pss2_handle handle : handles) EXPECT_EQ(pss2_close(handle), 0u);
}

TEST_F(Store, WalkVisitsKeysInBigEndianOrderWithHeadersFirst) {
  std::vector<std::string> keys;
  for (uint32_t sequence = 0; sequence <= 300; sequence++) keys.push_back(make_key(1, sequence, "alpha"));
  keys.push_back(make_key(1, 0, "beta"));
  keys.push_back(make_key(0, 7, "zulu"));
  std::vector<std::string> shuffled = keys;
  std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(7));
  for (const std::string &key : shuffled) put(handle_, key, key);

  std::sort(keys.begin(), keys.end());  // bytewise: the schedule (type 0) first, 256 after 255
  Records records = read_all(handle_);
  ASSERT_EQ(records.size(), keys.size());
  for (size_t i = 0; i < keys.size(); i++) EXPECT_EQ(records[i].first, keys[i]) << i;
  uint32_t status = 0;
  EXPECT_EQ(pss2_getkey(handle_, &status).data, nullptr);  // the walk is over
  EXPECT_EQ(status, PSS2_ERR_END);
  EXPECT_EQ(fetch(handle_, make_key(0, 0), &status), "");
  EXPECT_EQ(status, 0x40480003u) << "a missing key has its own status";
}

TEST_F(Store, ChangesThroughTheWalkingHandleAreSeenAheadAndNeverRevisited) {
  for (uint32_t sequence = 0; sequence < 10; sequence++) put(handle_, make_key(1, sequence), "old");
  std::vector<int> seen;
  uint32_t status = 0, moved = pss2_move2location(&handle_, 1, PSS2_LOCATION_FIRST, nullptr);
  for (; moved == 0; moved = pss2_move2location(&handle_, 1, PSS2_LOCATION_NEXT, nullptr)) {
    pss2_datum key = pss2_getkey(handle_, &status);
    std::string value = text_of(pss2_getvalue(handle_, &status));
    int sequence = static_cast<const unsigned char *>(key.data)[7];  // still valid after getvalue
    seen.push_back(sequence);
    EXPECT_EQ(value, sequence == 5 ? "new" : "old");
    if (sequence == 3) {
      put(handle_, make_key(1, 3), "new");            // the current record, replaced
      put(handle_, make_key(1, 5), "new");            // ahead: seen changed
      put(handle_, make_key(1, 20), "old");           // ahead: seen
      EXPECT_EQ(erase(handle_, make_key(1, 7)), 0u);  // ahead: never seen
      EXPECT_EQ(text_of(pss2_getvalue(handle_, &status)), "new");
    } else if (sequence == 8) {
      EXPECT_EQ(erase(handle_, make_key(1, 8)), 0u);
      EXPECT_EQ(pss2_getkey(handle_, &status).data, nullptr);
      EXPECT_EQ(status, PSS2_ERR_END);
    }
  }
  EXPECT_EQ(moved, PSS2_ERR_END);
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 8, 9, 20}));
}

TEST_F(Store, BatchIsSeenByItsHandleAloneUntilCommitAndAbortDropsIt) {
  pss2_handle other = open_store(dir_.file("s"), PSS2_MODE_UPDATE);
  uint32_t status = 0;
  EXPECT_EQ(pss2_batch_commit(handle_), PSS2_ERR_BATCH);
  ASSERT_EQ(pss2_batch_begin(handle_), 0u);
  EXPECT_EQ(pss2_batch_begin(handle_), PSS2_ERR_BATCH);
  for (uint32_t i = 0; i < 1000; i++) put(handle_, make_key(1, i), "batched");
  EXPECT_EQ(fetch(handle_, make_key(1, 999), &status), "batched");
  EXPECT_EQ(read_all(handle_).size(), 1000u);
  EXPECT_EQ(fetch(other, make_key(1, 999), &status), "");
  EXPECT_EQ(put(other, make_key(2, 0), "x"), PSS2_ERR_BUSY);  // the writer is taken by the batch
  EXPECT_EQ(pss2_batch_commit(handle_), 0u);
  EXPECT_EQ(read_all(other).size(), 1000u);

  ASSERT_EQ(pss2_batch_begin(other), 0u);
  EXPECT_EQ(erase(other, make_key(1, 0)), 0u);
  EXPECT_EQ(pss2_batch_abort(other), 0u);
  ASSERT_EQ(pss2_batch_begin(other), 0u);
  put(other, make_key(3, 1), "dropped by close");
  pss2_close(other);
  EXPECT_EQ(read_all(handle_).size(), 1000u);
  EXPECT_EQ(put(handle_, make_key(3, 2), "after"), 0u);
}

// The failure seam: the Nth call fails with the chosen status, once or from then on, and changes
// nothing.
TEST_F(Store, NthCallFailsOnceOrPersistentlyUntilCleared) {
  pss2_fault_set(PSS2_FAULT_STORE, 3, PSS2_ERR_FULL, 0);
  for (uint32_t i = 1; i <= 5; i++) EXPECT_EQ(put(handle_, make_key(1, i), "v"), i == 3 ? PSS2_ERR_FULL : 0u);
  Records records = read_all(handle_);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[2].first, make_key(1, 4));

  pss2_fault_set(PSS2_FAULT_DELETE, 2, PSS2_ERR_IO, 1);
  EXPECT_EQ(erase(handle_, make_key(1, 1)), 0u);
  for (int i = 0; i < 3; i++) EXPECT_EQ(erase(handle_, make_key(1, 2)), PSS2_ERR_IO);
  uint32_t status = 0;
  EXPECT_EQ(fetch(handle_, make_key(1, 2), &status), "v");
  pss2_fault_set(PSS2_FAULT_DELETE, 0, 0, 0);
  EXPECT_EQ(erase(handle_, make_key(1, 2)), 0u);

  // Read-side calls fail the same way, with a null descriptor.
  pss2_fault_set(PSS2_FAULT_GETVALUE, 1, PSS2_ERR_IO, 1);
  pss2_fault_set(PSS2_FAULT_FETCH, 1, PSS2_ERR_IO, 1);
  ASSERT_EQ(pss2_move2location(&handle_, 1, PSS2_LOCATION_FIRST, nullptr), 0u);
  EXPECT_EQ(pss2_getvalue(handle_, &status).data, nullptr);
  EXPECT_EQ(status, PSS2_ERR_IO);
  EXPECT_EQ(fetch(handle_, make_key(1, 4), &status), "");
  EXPECT_EQ(status, PSS2_ERR_IO);
  pss2_fault_clear_all();
  EXPECT_EQ(text_of(pss2_getvalue(handle_, &status)), "v");
}

// A batch that lost a change must not commit the rest: whether the change failed in the hook, on
// the key size or on the value size, commit reports the first failure and keeps nothing.
TEST_F(Store, RefusedChangeSpoilsTheOpenBatch) {
  ASSERT_EQ(put(handle_, make_key(1, 0), "before"), 0u);
  const std::string too_long(kAttributes.max_value_size + 1, 'x');
  struct Refusal {
    const char *what;
    uint32_t expected;
    std::function<uint32_t()> change;
  };
  const Refusal refusals[] = {
      {"store hook", PSS2_ERR_FULL, [&] {
         pss2_fault_set(PSS2_FAULT_STORE, 1, PSS2_ERR_FULL, 0);
         return put(handle_, make_key(1, 2), "lost");
       }},
      {"delete hook", PSS2_ERR_IO, [&] {
         pss2_fault_set(PSS2_FAULT_DELETE, 1, PSS2_ERR_IO, 0);
         return erase(handle_, make_key(1, 0));
       }},
      {"value size", PSS2_ERR_VALUE_SIZE, [&] { return put(handle_, make_key(1, 2), too_long); }},
      {"key size", PSS2_ERR_KEY_SIZE, [&] { return put(handle_, "\1\2\3", too_long); }},
  };
  for (const Refusal &refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    ASSERT_EQ(pss2_batch_begin(handle_), 0u);
    EXPECT_EQ(put(handle_, make_key(1, 1), "batched"), 0u);
    EXPECT_EQ(refusal.change(), refusal.expected);
    // Later changes report the spoiled batch, and the hook is spent, so nothing else fails.
    EXPECT_EQ(put(handle_, make_key(1, 3), "after"), refusal.expected);
    EXPECT_EQ(pss2_batch_commit(handle_), refusal.expected);
    EXPECT_EQ(read_all(handle_), (Records{{make_key(1, 0), "before"}}));
  }

  // A missing key is an answer, not a failure: the batch stays good.
  ASSERT_EQ(pss2_batch_begin(handle_), 0u);
  EXPECT_EQ(erase(handle_, make_key(9, 9)), PSS2_ERR_NO_KEY);
  EXPECT_EQ(put(handle_, make_key(1, 1), "kept"), 0u);
  EXPECT_EQ(pss2_batch_commit(handle_), 0u);
  EXPECT_EQ(read_all(handle_).size(), 2u);
}

TEST_F(Store, AFailedDirectorySetChangesNothing) {
  std::ofstream(dir_.file("file")) << "x";
  EXPECT_EQ(sysmgr_dirs_set(dir_.file("new/state").c_str(), dir_.file("file/run").c_str()), ENOTDIR);
  EXPECT_FALSE(fs::exists(dir_.file("new")));
  EXPECT_EQ(sysmgr_state_dir(), dir_.file("state"));
  EXPECT_EQ(sysmgr_dirs_set(nullptr, "x"), EINVAL);
  EXPECT_EQ(sysmgr_dirs_set(std::string(201, 'd').c_str(), "x"), ENAMETOOLONG);
}

// Each step fails in turn (the two copies, then the commit record) until none is left to fail: the
// pair of targets is always wholly old or wholly new, and nothing is left beside them.
TEST_F(Store, FailedSnapshotLeavesTheOldStartupPairWhole) {
  save_pair(1);
  write_generation(2);
  uint64_t nth = 1;
  for (;; nth++) {
    pss2_fault_set(PSS2_FAULT_SNAPSHOT, nth, PSS2_ERR_IO, 0);
    uint32_t status = pss2_snapshot(config_, debug_config_);
    const char *expected = status == 0 ? "2" : "1";
    EXPECT_EQ(generation(startup("scheduler_startup")), expected) << nth;
    EXPECT_EQ(generation(debug("scheduler_debug_startup")), expected) << nth;
    EXPECT_EQ(leftovers(), std::vector<std::string>{}) << nth;
    if (status == 0) break;
    EXPECT_EQ(status, PSS2_ERR_IO);
    ASSERT_LE(nth, 3u);
  }
  EXPECT_EQ(nth, 4u) << "two copies and the commit record, each failed once";
}

TEST_F(Store, FailedShrinkClosesTheHandleAndLeavesTheStoreAsItWas) {
  for (uint32_t i = 0; i < 50; i++) put(handle_, make_key(1, i), "kept");
  Records before = read_all(handle_);
  uintmax_t size = fs::file_size(dir_.file("s"));
  uint32_t status = 0;
  pss2_fault_set(PSS2_FAULT_SHRINK, 1, PSS2_ERR_IO, 0);
  EXPECT_EQ(pss_shrink(handle_, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_IO);
  EXPECT_EQ(pss2_close(handle_), PSS2_ERR_BAD_HANDLE);
  EXPECT_EQ(fs::file_size(dir_.file("s")), size);
  for (const auto &entry : fs::directory_iterator(dir_.path())) {
    EXPECT_EQ(entry.path().filename().string().find(".tmp."), std::string::npos) << entry.path();
  }

  handle_ = open_store(dir_.file("s"), PSS2_MODE_UPDATE);
  pss2_handle second = open_store(dir_.file("s"), PSS2_MODE_READ);
  EXPECT_EQ(pss_shrink(handle_, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_BUSY);  // the file cannot be replaced under another handle
  EXPECT_EQ(pss_shrink(second, &status), 0u);
  EXPECT_EQ(status, PSS2_ERR_READ_ONLY);
  EXPECT_EQ(contents(dir_.file("s")), before);
}

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

// A crash after the commit record, with the first rename done and the second not: recovery does
// the second, removes the record and every stray temporary, and nothing else.
TEST_F(Store, RecoveryFinishesACommittedCopyAndClearsStrayTemporaries) {
  save_pair(1);
  write_generation(2);
  close_pair();

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
TEST_F(Store, DamagedOrForeignCopyRecordIsRemovedUnused) {
  save_pair(1);
  close_pair();
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

// Kill loops: a child writes and reports each finished step through a pipe; it is killed after a
// random number of reported steps plus a random part of the next one, so that the kills fall
// anywhere in a step however slow the disk is. Returns the child's exit status and hands each
// step it reported to `reported`, in order.
template <typename Child>
int run_and_kill(std::mt19937 &random, uint32_t most_steps, uint32_t most_microseconds, Child child_steps,
                 const std::function<void(uint64_t)> &reported) {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  pid_t child = fork();
  EXPECT_GE(child, 0);
  if (child < 0) return 0;
  if (child == 0) {
    close(fds[0]);
    child_steps(fds[1]);
    _exit(2);
  }
  close(fds[1]);
  uint64_t step = 0;
  pollfd report{fds[0], POLLIN, 0};
  for (uint32_t wait_for = random() % most_steps; wait_for > 0 && poll(&report, 1, 5000) == 1; wait_for--) {
    if (read(fds[0], &step, sizeof step) != sizeof step) break;
    reported(step);
  }
  std::this_thread::sleep_for(std::chrono::microseconds(random() % most_microseconds));
  kill(child, SIGKILL);
  int wait_status = 0;
  EXPECT_EQ(waitpid(child, &wait_status, 0), child);
  while (read(fds[0], &step, sizeof step) == sizeof step) reported(step);
  close(fds[0]);
  return wait_status;
}

// After each kill of a child copying generation after generation to startup, recovery must leave
// a startup pair of one generation, no older than the last copy the child finished and no newer
// than the one under way, and not one temporary file.
TEST_F(Store, KilledCopyLeavesTheOldOrTheNewPairWhole) {
  pss2_close(handle_);  // nothing open across fork but what the child opens itself
  save_pair(0);
  close_pair();
  uint64_t finished = 0;  // the last generation the child reported copied
  std::mt19937 random(20261124);
  for (int kill_number = 0; kill_number < 40; kill_number++) {
    auto copies = [&](int report) {
      open_pair(PSS2_MODE_UPDATE);
      for (uint64_t n = finished + 1; config_ && debug_config_; n++) {
        write_generation(n);
        if (pss2_snapshot(config_, debug_config_) != 0 || write(report, &n, sizeof n) != sizeof n) break;
      }
    };
    int wait_status = run_and_kill(random, 3, 40000, copies, [&](uint64_t n) { finished = n; });
    ASSERT_TRUE(WIFSIGNALED(wait_status)) << "the child failed a copy";

    ASSERT_EQ(pss2_startup_recover(), 0u);
    std::string config = generation(startup("scheduler_startup"));
    ASSERT_EQ(generation(debug("scheduler_debug_startup")), config) << "after kill " << kill_number;
    uint64_t copied = std::stoull(config);
    ASSERT_TRUE(copied == finished || copied == finished + 1) << copied << " after " << finished;
    finished = copied;
    ASSERT_EQ(leftovers(), std::vector<std::string>{}) << "after kill " << kill_number;
  }
  EXPECT_GT(finished, 20u) << "the child hardly copied anything";
}

// Operation n of an endless sequence that the child performs and the parent replays on its
// model: mostly single stores, some deletes, and batches of 20 that must land whole or not at all.
struct Operation {
  bool erase = false, batch = false;
  Records records;
  explicit Operation(uint64_t n) {
    uint64_t r = (n + 1) * 0x9E3779B97F4A7C15ull;
    r ^= r >> 29;
    erase = r % 10 == 1 || r % 10 == 2;
    batch = r % 10 == 0;
    for (uint32_t j = 0; j < (batch ? 20u : 1u); j++) {
      uint64_t seed = (r >> 16) + j;
      records.emplace_back(make_key(batch ? 2 : 1, (r >> 8) % 512 + j),
                           std::string(1 + seed % 1024, static_cast<char>('a' + seed % 26)));
    }
  }
  void apply(std::map<std::string, std::string> &model) const {
    for (auto &[key, value] : records) {
      if (erase) {
        model.erase(key);
      } else {
        model[key] = value;
      }
    }
  }
  uint32_t perform(pss2_handle handle) const {
    if (batch && pss2_batch_begin(handle) != 0) return 1;
    for (auto &[key, value] : records) {
      uint32_t status = erase ? ::erase(handle, key) : put(handle, key, value);
      if (status != 0 && status != PSS2_ERR_NO_KEY) return status;
    }
    return batch ? pss2_batch_commit(handle) : 0;
  }
};

// How many kills to survive: 250, or fewer where SCHED_STORE_CRASH_KILLS says so (under
// emulation every write is many times slower, and the run keeps the same wall-clock bound).
int kill_count() {
  const char *text = std::getenv("SCHED_STORE_CRASH_KILLS");
  int count = text ? std::atoi(text) : 0;
  return count > 0 && count <= 250 ? count : 250;
}

// Every write the child reported must be in the store when it reopens, and at most the one under
// way besides, whole.
TEST_F(Store, EveryReportedWriteSurvivesKillNine) {
  pss2_close(handle_);
  std::map<std::string, std::string> model;
  uint64_t next = 0;  // the first operation not known to be in the store
  std::mt19937 random(20240611);
  auto started = std::chrono::steady_clock::now();
  const int kills = kill_count();
  for (int kill_number = 0; kill_number < kills; kill_number++) {
    auto writes = [&](int report) {
      pss2_handle handle = open_store(dir_.file("s"), PSS2_MODE_UPDATE);
      for (uint64_t n = next; handle; n++) {
        if (Operation(n).perform(handle) != 0 || write(report, &n, sizeof n) != sizeof n) break;
      }
    };
    int wait_status = run_and_kill(random, 6, 3000, writes, [&](uint64_t n) {
      ASSERT_EQ(n, next);
      Operation(next++).apply(model);
    });
    ASSERT_TRUE(WIFSIGNALED(wait_status)) << "the child failed a write";

    Records records = contents(dir_.file("s"));
    std::map<std::string, std::string> found(records.begin(), records.end());
    if (found != model) {
      Operation(next++).apply(model);
      ASSERT_EQ(found, model) << "after kill " << kill_number << ", operation " << next - 1;
    }
  }
  EXPECT_GT(next, 2u * kills) << "the child hardly wrote anything";
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
}

}  // namespace

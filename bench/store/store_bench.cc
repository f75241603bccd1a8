// Store latency: one durable pss2_store against a bare LMDB put and commit with the same sync,
// and a batch of 1000 stores made durable by one commit.
#include <benchmark/benchmark.h>
#include <ftw.h>
#include <lmdb.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "schedcli/platform/pss.h"

namespace {

constexpr uint32_t kKeySpace = 4096;  // keys cycle so the tree keeps a steady shape

class ScratchDir {
 public:
  ScratchDir() {
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/pss-bench-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    path_ = mkdtemp(buffer.data()) ? buffer.data() : "";
  }
  ~ScratchDir() {
    nftw(path_.c_str(), [](const char *p, const struct stat *, int, struct FTW *) { return std::remove(p); }, 16,
         FTW_DEPTH | FTW_PHYS);
  }
  std::string file(const char *name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::array<unsigned char, 40> key_for(uint32_t n) {
  std::array<unsigned char, 40> key{};
  key[3] = 255;
  key[4] = static_cast<unsigned char>(n >> 24);
  key[5] = static_cast<unsigned char>(n >> 16);
  key[6] = static_cast<unsigned char>(n >> 8);
  key[7] = static_cast<unsigned char>(n);
  return key;
}

pss2_handle open_scratch_store(const ScratchDir &dir, benchmark::State &state) {
  const pss2_attributes attributes{40, 1024, 0x001E0000, 1, 2000};
  uint32_t status = 0;
  pss2_handle handle = pss2_open(dir.file("store").c_str(), PSS2_MODE_CREATE, 0xE0, 0, &attributes, &status);
  if (!handle) state.SkipWithError("cannot create the store");
  return handle;
}

void BM_PssStoreDurable(benchmark::State &state) {
  ScratchDir dir;
  pss2_handle handle = open_scratch_store(dir, state);
  std::string value(static_cast<size_t>(state.range(0)), 'v');
  pss2_datum v{value.data(), static_cast<int32_t>(value.size())};
  uint32_t n = 0;
  for (auto _ : state) {
    auto key = key_for(n++ % kKeySpace);
    pss2_datum k{key.data(), 40};
    if (pss2_store(handle, &k, &v) != 0) state.SkipWithError("store failed");
  }
  state.SetItemsProcessed(state.iterations());
  pss2_close(handle);
}
BENCHMARK(BM_PssStoreDurable)->Arg(8)->Arg(1024)->UseRealTime();

// The same work on a bare environment: one transaction per put, committed with LMDB's default sync.
void BM_LmdbPutCommitDurable(benchmark::State &state) {
  ScratchDir dir;
  MDB_env *env = nullptr;
  MDB_txn *txn = nullptr;
  MDB_dbi dbi = 0;
  mdb_env_create(&env);
  mdb_env_set_mapsize(env, size_t{1} << 30);
  mdb_env_set_maxdbs(env, 2);
  if (mdb_env_open(env, dir.file("bare").c_str(), MDB_NOSUBDIR | MDB_NOTLS, 0660) != 0 ||
      mdb_txn_begin(env, nullptr, 0, &txn) != 0 || mdb_dbi_open(txn, "records", MDB_CREATE, &dbi) != 0 ||
      mdb_txn_commit(txn) != 0) {
    state.SkipWithError("cannot open the environment");
  }
  std::string value(static_cast<size_t>(state.range(0)), 'v');
  uint32_t n = 0;
  for (auto _ : state) {
    auto key = key_for(n++ % kKeySpace);
    MDB_val k{key.size(), key.data()};
    MDB_val v{value.size(), value.data()};
    if (mdb_txn_begin(env, nullptr, 0, &txn) != 0 || mdb_put(txn, dbi, &k, &v, 0) != 0 || mdb_txn_commit(txn) != 0) {
      state.SkipWithError("put failed");
    }
  }
  state.SetItemsProcessed(state.iterations());
  mdb_env_close(env);
}
BENCHMARK(BM_LmdbPutCommitDurable)->Arg(8)->Arg(1024)->UseRealTime();

void BM_PssBatchOf1000(benchmark::State &state) {
  ScratchDir dir;
  pss2_handle handle = open_scratch_store(dir, state);
  std::string value(1024, 'v');
  pss2_datum v{value.data(), static_cast<int32_t>(value.size())};
  uint32_t n = 0;
  for (auto _ : state) {
    pss2_batch_begin(handle);
    for (int i = 0; i < 1000; i++) {
      auto key = key_for(n++ % kKeySpace);
      pss2_datum k{key.data(), 40};
      pss2_store(handle, &k, &v);
    }
    if (pss2_batch_commit(handle) != 0) state.SkipWithError("commit failed");
  }
  state.SetItemsProcessed(state.iterations() * 1000);
  pss2_close(handle);
}
BENCHMARK(BM_PssBatchOf1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

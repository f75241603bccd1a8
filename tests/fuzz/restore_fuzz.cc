// Fuzzing of the daemon's start-up from stores whose records another build wrote, or that were
// damaged: the daemon either refuses to serve or comes up with a configuration that a restart from
// what it made durable gives again, and it gives back every tracked block when it stops.
//
// Input: a mode byte (bit 0: a stateless restart, the records in the startup store; otherwise a
// restart after a crash, the records in the running stores), then records: a store byte (odd: the
// run-results store, running only), a key of the stores' key size, a u16 length and the value.
// Beyond the restart's agreement: the run log stays in the daemon's directories.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "fuzz_support.h"
#include "runner/log_file.h"
#include "schedcli/diag.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/protocol.h"
#include "schedcli/pss.h"

namespace {

using fuzz::require;

constexpr size_t kKeySize = 40;  // the stores' fixed key size
// Written once a start-up has made its running stores whole; its absence means a failed start.
constexpr const char *kRunningWholeName = "running-stores-whole";

struct World {
  fuzz::LocalDaemon local{"restore", false};
  std::string running_uri, results_uri, startup_uri;
  std::string empty_store;  // an empty store as the library creates one, copied for each input
};
World *g_world;

std::string uri_of(const char (&uri)[SCH_PSS_URI_SIZE]) { return std::string(uri, strnlen(uri, SCH_PSS_URI_SIZE)); }

// The input's stores start as copies of one empty store made at start-up: creating a store opens
// it twice, and opening is the dearest part of a start-up.
pss2_handle create_store(const std::string &uri) {
  pss2_destroy(uri.c_str());
  // libFuzzer's timer interrupts a system call now and then, and copy_file gives up on EINTR.
  std::error_code error;
  while (!std::filesystem::copy_file(g_world->empty_store, uri, std::filesystem::copy_options::overwrite_existing,
                                     error)) {
    require(error == std::errc::interrupted, "a copy of the empty store is made");
  }
  uint32_t status = 0;
  pss2_handle store = pss2_open(uri.c_str(), PSS2_MODE_UPDATE, SCH_PSS_PERMISSIONS, 0, nullptr, &status);
  require(store != 0, "a copy of the empty store opens");
  return store;
}

// Clears what earlier inputs left in `directory`, all but the folder `kept`: a daemon makes its
// run log under whatever name a store gives it, and thousands of such files made each start-up's
// scan for stray temporaries dearer than the rest of the start-up.
void clear_left_files(const std::filesystem::path &directory, const std::filesystem::path &kept) {
  std::error_code error;
  std::vector<std::filesystem::directory_entry> entries;
  for (const auto &entry : std::filesystem::directory_iterator(directory, error)) entries.push_back(entry);
  for (const auto &entry : entries) {
    if (!entry.is_directory(error)) {
      std::filesystem::remove(entry.path(), error);
    } else if (entry.path().lexically_normal() != kept.lexically_normal()) {
      clear_left_files(entry.path(), kept);
    }
  }
}

// Whatever the store names, the run log stays in the daemon's directories: a damaged store must
// not make it create or empty a file elsewhere.
bool run_log_kept_inside() {
  std::string location = schedd::log_file_location(schedd::stored_log_path(sch_log_file));
  const schedd::Options &options = g_world->local.options;
  return location.starts_with(options.state_dir + "/") || location.starts_with(options.runtime_dir + "/");
}

// Starts a daemon, and when it serves, hands back its running text.
bool start(std::string *text) {
  std::string error;
  if (!g_world->local.start(&error)) return false;
  require(run_log_kept_inside(), "the run log stays in the daemon's directories");
  *text = g_world->local.running_text();
  return true;
}

void stop() {
  g_world->local.stop();
  if (mtrack_live_blocks(SCH_MTRACK_IDENTITY) != 0) mtrack_dump_memstats(fuzz::report());
  require(mtrack_live_blocks(SCH_MTRACK_IDENTITY) == 0, "every tracked block back after a stop");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
  fuzz::begin_run(argc, argv);
  g_world = new World;
  const schedd::Options &options = g_world->local.options;
  // A first start lays out the directories; the stores' names come from them.
  std::string text;
  require(start(&text), "a daemon starts on empty directories");
  stop();
  require(sysmgr_dirs_set(options.state_dir.c_str(), options.runtime_dir.c_str()) == 0, "the directories are usable");
  sch_pss_uri_init();
  g_world->running_uri = uri_of(sch_pss_running_uri);
  g_world->results_uri = uri_of(sch_pss_running_db_uri);
  g_world->startup_uri = uri_of(sch_pss_startup_uri);
  g_world->empty_store = fuzz::scratch_directory("empty") + "/store";
  pss2_handle empty = sch_pss_create(g_world->empty_store.c_str(), SCH_PSS_VALUE_SIZE, SCH_PSS_VALUE_SIZE, kKeySize);
  require(empty != 0, "a store can be created");
  pss2_close(empty);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader input(data, size);
  bool stateless = input.byte() & 1;

  const std::string &runtime_dir = g_world->local.options.runtime_dir;
  std::filesystem::create_directories(runtime_dir);
  clear_left_files(g_world->local.options.state_dir, std::filesystem::path(g_world->startup_uri).parent_path());
  pss2_handle config = create_store(stateless ? g_world->startup_uri : g_world->running_uri);
  pss2_handle results = create_store(g_world->results_uri);
  if (stateless) pss2_destroy(g_world->running_uri.c_str());
  // One durable commit per store rather than one per record.
  pss2_batch_begin(config);
  pss2_batch_begin(results);
  while (!input.empty()) {
    bool to_results = input.byte() & 1;
    std::string key(input.bytes(kKeySize));
    key.resize(kKeySize);
    std::string value(input.bytes(input.u16()));
    pss2_datum key_datum{key.data(), static_cast<int32_t>(key.size())};
    pss2_datum value_datum{value.data(), static_cast<int32_t>(value.size())};
    // A value the store's size does not take would be refused, and would spoil the batch.
    if (value.size() > SCH_PSS_VALUE_SIZE) continue;
    pss2_store(to_results && !stateless ? results : config, &key_datum, &value_datum);
  }
  require(pss2_batch_commit(config) == 0 && pss2_batch_commit(results) == 0, "the input's records are stored");
  pss2_close(config);
  pss2_close(results);
  if (stateless) {
    std::filesystem::remove_all(runtime_dir);
  } else {
    std::ofstream(runtime_dir + "/" + kRunningWholeName).put('\n');
  }

  std::string text;
  bool served = start(&text);
  stop();
  if (!served) return 0;
  // What it made durable restores to the same configuration.
  std::string again;
  require(start(&again), "a daemon restarts from the stores it made whole");
  if (again != text) std::fprintf(fuzz::report(), "---- first start\n%s---- restart\n%s----\n", text.c_str(), again.c_str());
  require(again == text, "a restart gives the configuration the first start served");
  stop();
  return 0;
}

// Test support for persistence: a temporary state and runtime directory, the database and store
// globals reset around each test, builders for records, and reading a store back.
#ifndef SCHEDCLI_TESTS_PSS_FIXTURE_H
#define SCHEDCLI_TESTS_PSS_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "db/codec.h"
#include "schedcli/platform/syslog.h"
#include "schedcli/platform/sysmgr.h"
#include "schedcli/pss.h"
#include "support/temp_dir.h"
#include "support/traces.h"

namespace sch::testing {

class PssTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    reset_globals();
  }
  void TearDown() override {
    nost_syslog_set_sink(nullptr, nullptr);
    pss2_fault_clear_all();
    close_all();
    release_all();
    reset_globals();
    sysmgr_dirs_clear();
    DatabaseTest::TearDown();
  }

  // Sets the directories as a starting daemon does; `runtime_exists` false makes it stateless.
  void start_platform(bool runtime_exists) {
    if (runtime_exists) std::filesystem::create_directories(runtime_dir_);
    ASSERT_EQ(sysmgr_dirs_set(state_dir_.c_str(), runtime_dir_.c_str()), 0);
    sch_pss_uri_init();
  }

  // A store of the scheduler's geometry at `path`, created fresh.
  static pss2_handle create(const std::string &path) {
    pss2_handle handle = sch_pss_create(path.c_str(), 1024, 1024, 40);
    EXPECT_NE(handle, 0u) << path;
    return handle;
  }

  // Collects syslog messages into syslog_ until the test ends.
  void capture_syslog() {
    nost_syslog_set_sink([](int, const char *text, void *m) { static_cast<std::vector<std::string> *>(m)->push_back(text); },
                         &syslog_);
  }

  // Drops the database from memory, as a restarting daemon has it.
  static void forget_memory() {
    release_all();
    reset_globals();
  }

  static void close_all() {
    for (pss2_handle *handle : {&pss_running, &pss_running_db, &debug_pss_running}) {
      if (*handle) pss2_close(*handle);
      *handle = 0;
    }
  }

  static void reset_globals() {
    for (char *uri : {sch_pss_running_uri, sch_pss_running_db_uri, sch_debug_pss_running_uri, sch_pss_startup_uri,
                      sch_debug_pss_startup_uri}) {
      std::memset(uri, 0, SCH_PSS_URI_SIZE);
    }
    pss_running = pss_running_db = debug_pss_running = 0;
    scheduler_enabled = 0;
    sch_log_file = sch_log_file_record{{}, {}, SCH_LOG_FILE_SIZE_DEFAULT, 0, 0, 0, {}};
    email_transport_conf = sch_email_transport_conf{{}, {}, {}, {}, 0, SCH_SMTP_PORT_DEFAULT, {}};
    sch_log_file_key = sch_config_key{SCH_REC_LOG_FILE, 0, {}};
    sch_condition_key = sch_config_key{SCH_REC_CONDITION, 0, {}};
    sch_uname_q_init();
  }

  sch::testing::TempDir temp_;
  const std::filesystem::path state_dir_ = temp_.file("state"), runtime_dir_ = temp_.file("run");
  std::vector<std::string> syslog_;
};

// ---- Building a database ----

// A tracked copy of `value`, as the database holds its own.
template <typename T>
T *tracked(const T &value, int kind) {
  return static_cast<T *>(std::memcpy(sch_malloc_check(sizeof(T), kind, 0, "test"), &value, sizeof(T)));
}

inline sch_config_key *new_key(uint32_t type, const std::string &name) {
  sch_config_key key{type, 0, {}};
  std::memcpy(key.name, name.data(), std::min(name.size(), sizeof key.name));
  return tracked(key, 5);
}

inline sch_job_slot *add_job(uint32_t id, const std::string &name, const std::string &text) {
  sch_job_header header{id, 0x1000 + id, static_cast<uint32_t>(text.size())};
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_hdr(&sch_running_config, new_key(SCH_REC_JOB, name), tracked(header, 6), &slot), 0);
  for (size_t offset = 0; offset < text.size(); offset += SCH_FRAGMENT_SIZE) {
    size_t length = std::min<size_t>(SCH_FRAGMENT_SIZE, text.size() - offset);
    slot->fragments = g_list_append(slot->fragments, std::memcpy(sch_malloc_check(length, 7, 0, "test"), text.data() + offset, length));
  }
  return slot;
}

// A schedule at 02:30 daily, on `jobs`.
inline sch_schedule_entry *add_schedule(const std::string &name, std::initializer_list<int> jobs = {}) {
  sch_schedule_record value{};
  value.time = tminfo{SCH_TM_DAILY, 2, 0, 0, 30, 0, 0, 0, 0, 0};
  for (int job : jobs) {
    value.jobs[job / 32] |= 1u << (job % 32);
    value.job_count++;
  }
  sch_schedule_entry *entry = nullptr;
  EXPECT_EQ(sch_add_schedule_entry(&sch_running_config, new_key(SCH_REC_SCHEDULE, name), tracked(value, 14), &entry), 0);
  return entry;
}

inline void add_result(uint32_t job, char schedule, uint32_t word) {
  sch_runtime_job_status result{{schedule}, job, {0, word}};
  ASSERT_EQ(sch_add_runtime_job_status_entry(&sch_running_config, tracked(result, 4)), 0);
}

inline sch_user_element *add_user(queue_header *queue, const char *name, const char *password, uint32_t word) {
  auto *element = static_cast<sch_user_element *>(sch_malloc_check(sizeof(sch_user_element), 16, 0, "t"));
  std::strcpy(element->record.user, name);
  std::strcpy(element->record.password, password);
  element->record.word = word;
  sch_add_user_info(queue, element);
  return element;
}

// ---- Reading a store back ----

// How many records the store holds.
inline size_t record_count(pss2_handle store) {
  size_t count = 0;
  uint32_t visited = 0;
  for (uint32_t status = pss2_move2location(&store, 1, PSS2_LOCATION_FIRST, &visited); status == 0;
       status = pss2_move2location(&store, 1, PSS2_LOCATION_NEXT, &visited)) {
    count++;
  }
  return count;
}

// The stored (big-endian) image of a key.
inline std::string stored_key(uint32_t type, uint32_t sequence, const std::string &name = "") {
  sch_config_key key{type, sequence, {}};
  std::memcpy(key.name, name.data(), std::min(name.size(), sizeof key.name));
  std::string image(SCH_KEY_SIZE, '\0');
  codec::encode(codec::kConfigKey, &key, reinterpret_cast<uint8_t *>(image.data()));
  return image;
}

// The value stored under a key image, or "<none>".
inline std::string value_at(pss2_handle store, const std::string &key) {
  pss2_datum key_datum{const_cast<char *>(key.data()), static_cast<int32_t>(key.size())};
  uint32_t status = 0;
  pss2_datum value = pss2_fetch(store, &key_datum, &status);
  if (status != 0) return "<none>";
  return std::string(static_cast<const char *>(value.data), static_cast<size_t>(value.length));
}

}  // namespace sch::testing

#endif

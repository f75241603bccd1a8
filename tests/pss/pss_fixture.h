// Test support for persistence: a temporary state and runtime directory, the database and store
// globals reset around each test, builders for records and a comparable picture of a database.
#ifndef SCHEDCLI_TESTS_PSS_FIXTURE_H
#define SCHEDCLI_TESTS_PSS_FIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "schedcli/pss.h"
#include "schedcli/platform/sysmgr.h"
#include "support/traces.h"
#include "support/temp_dir.h"

namespace sch::testing {

class PssTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    root_ = temp_.path();
    state_dir_ = root_ / "state";
    runtime_dir_ = root_ / "run";
    reset_globals();
  }
  void TearDown() override {
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

  std::string path(const std::string &name) const { return (root_ / name).string(); }

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
  std::filesystem::path root_, state_dir_, runtime_dir_;
};

// ---- Building a database ----

inline sch_job_slot *add_job(sch_config_set *db, uint32_t id, const std::string &name, const std::string &text) {
  auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 5, 0, "test"));
  key->type = SCH_REC_JOB;
  std::memcpy(key->name, name.data(), std::min(name.size(), sizeof key->name));
  auto *header = static_cast<sch_job_header *>(sch_malloc_check(sizeof(sch_job_header), 6, 0, "test"));
  header->job_id = id;
  header->reserved = 0x1000 + id;
  header->length = static_cast<uint32_t>(text.size());
  sch_job_slot *slot = nullptr;
  EXPECT_EQ(sch_add_job_hdr(db, key, header, &slot), 0);
  for (size_t offset = 0; offset < text.size(); offset += SCH_FRAGMENT_SIZE) {
    size_t length = std::min<size_t>(SCH_FRAGMENT_SIZE, text.size() - offset);
    void *fragment = sch_malloc_check(length, 7, 0, "test");
    std::memcpy(fragment, text.data() + offset, length);
    slot->fragments = g_list_append(slot->fragments, fragment);
  }
  return slot;
}

inline sch_schedule_entry *add_schedule(sch_config_set *db, const std::string &name, const tminfo &time,
                                        std::initializer_list<int> jobs) {
  auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 14, 0, "test"));
  key->type = SCH_REC_SCHEDULE;
  std::memcpy(key->name, name.data(), std::min(name.size(), sizeof key->name));
  auto *value = static_cast<sch_schedule_record *>(sch_malloc_check(sizeof(sch_schedule_record), 14, 0, "test"));
  value->time = time;
  for (int job : jobs) {
    value->jobs[job / 32] |= 1u << (job % 32);
    value->job_count++;
  }
  std::strcpy(value->user, "operator");
  value->execution_count = 3;
  value->reserved0[1] = 0x77;
  sch_schedule_entry *entry = nullptr;
  EXPECT_EQ(sch_add_schedule_entry(db, key, value, &entry), 0);
  return entry;
}

inline void add_result(sch_config_set *db, uint32_t job, const char *schedule, uint32_t word0, uint32_t word1) {
  auto *result = static_cast<sch_runtime_job_status *>(sch_malloc_check(sizeof(sch_runtime_job_status), 4, 0, "t"));
  std::memcpy(result->schedule, schedule, strnlen(schedule, sizeof result->schedule));
  result->job_id = job;
  result->result[0] = word0;
  result->result[1] = word1;
  ASSERT_EQ(sch_add_runtime_job_status_entry(db, result), 0);
}

inline sch_user_element *add_user(queue_header *queue, const char *name, const char *password, uint32_t word) {
  auto *element = static_cast<sch_user_element *>(sch_malloc_check(sizeof(sch_user_element), 16, 0, "t"));
  std::strcpy(element->record.user, name);
  std::strcpy(element->record.password, password);
  element->record.word = word;
  sch_add_user_info(queue, element);
  return element;
}

inline std::string text_of(size_t length, char seed = 'a') {
  std::string text;
  for (size_t i = 0; i < length; i++) text.push_back(i % 80 == 79 ? '\n' : static_cast<char>(seed + i % 23));
  return text;
}

// ---- A comparable picture of a database ----

template <typename T>
std::string bytes_of(const T &value) {
  return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

struct Picture {
  std::map<int, std::string> jobs;                   // id -> name, header and text
  std::map<int, std::vector<std::string>> results;   // id -> run results
  std::vector<std::string> schedules;                // name and record, in list order
  std::vector<std::string> emails;
  std::vector<std::string> users;
  bool operator==(const Picture &) const = default;
};

inline Picture picture(sch_config_set *db, queue_header *users) {
  Picture p;
  for (int index = 0; sch_job_slot *slot = sch_next_job(db, &index); index++) {
    std::string text(slot->header ? slot->header->length + 2 : 2, '\0');
    if (slot->header) sch_concat_fragments(slot->fragments, text.data(), static_cast<int>(slot->header->length));
    p.jobs[index] = std::string(slot->key->name, strnlen(slot->key->name, 32)) + "|" +
                    (slot->header ? bytes_of(*slot->header) : "") + "|" + text;
    for (GList *e = slot->run_results; e; e = e->next) {
      p.results[index].push_back(bytes_of(*static_cast<sch_runtime_job_status *>(e->data)));
    }
  }
  for (GList *e = g_list_first(*db->schedules); e; e = e->next) {
    auto *entry = static_cast<sch_schedule_entry *>(e->data);
    p.schedules.push_back(bytes_of(entry->key->name) + bytes_of(*entry->value));
  }
  for (GList *e = g_list_first(sch_schedule_email_list); e; e = e->next) {
    p.emails.push_back(bytes_of(*static_cast<sch_schedule_email_entry *>(e->data)));
  }
  // Run results come back in the store's key order, not in arrival order.
  for (auto &[id, results] : p.results) std::sort(results.begin(), results.end());
  for (auto *u = static_cast<sch_user_element *>(peek_head(users)); u; u = static_cast<sch_user_element *>(u->link)) {
    p.users.push_back(bytes_of(u->record));
  }
  return p;
}

inline std::ostream &operator<<(std::ostream &out, const Picture &p) {
  return out << p.jobs.size() << " jobs, " << p.schedules.size() << " schedules, " << p.emails.size() << " email entries, "
             << p.users.size() << " users";
}

}  // namespace sch::testing

#endif

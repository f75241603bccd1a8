// Save and restore of a maximal configuration: 256 jobs of 8182 bytes, 1,000 schedules each with
// ten addresses and all 256 jobs, 100 users and 10,000 run results.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "schedcli/diag.h"
#include "schedcli/pss.h"

namespace {

constexpr int kSchedules = 1000;
constexpr int kUsers = 100;
constexpr int kRunResults = 10000;

void build_maximal_configuration() {
  for (uint32_t id = 0; id < SCH_MAX_JOBS; id++) {
    auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 5, 0, "bench"));
    key->type = SCH_REC_JOB;
    std::snprintf(key->name, sizeof key->name, "job-%u", id);
    auto *header = static_cast<sch_job_header *>(sch_malloc_check(sizeof(sch_job_header), 6, 0, "bench"));
    header->job_id = id;
    header->length = 8182;
    sch_job_slot *slot = nullptr;
    sch_add_job_hdr(&sch_running_config, key, header, &slot);
    for (uint32_t remaining = 8182; remaining > 0;) {
      uint32_t length = remaining > 1024 ? 1024 : remaining;
      void *fragment = sch_malloc_check(length, 7, 0, "bench");
      std::memset(fragment, 'x', length);
      slot->fragments = g_list_append(slot->fragments, fragment);
      remaining -= length;
    }
  }
  for (int s = 0; s < kSchedules; s++) {
    auto *key = static_cast<sch_config_key *>(sch_malloc_check(sizeof(sch_config_key), 14, 0, "bench"));
    std::snprintf(key->name, sizeof key->name, "schedule-%d", s);
    auto *value = static_cast<sch_schedule_record *>(sch_malloc_check(sizeof(sch_schedule_record), 14, 0, "bench"));
    std::memset(value->jobs, 0xFF, sizeof value->jobs);
    value->job_count = SCH_MAX_JOBS;
    value->time = tminfo{3, 2, 0, 0, 30, 0, 0, 0, 0, 0};
    sch_schedule_entry *entry = nullptr;
    sch_add_schedule_entry(&sch_running_config, key, value, &entry);
    for (int a = 0; a < SCH_MAX_EMAILS; a++) {
      std::string address = "operator" + std::to_string(a) + "@example.net";
      sch_add_schedule_email_entry(&sch_schedule_email_list, key->name, address.c_str());
    }
  }
  for (int u = 0; u < kUsers; u++) {
    auto *user = static_cast<sch_user_element *>(sch_malloc_check(sizeof(sch_user_element), 16, 0, "bench"));
    std::snprintf(user->record.user, sizeof user->record.user, "user-%d", u);
    std::memset(user->record.password, 'p', 100);
    user->record.word = static_cast<uint32_t>(u);
    sch_add_user_info(&sch_uname_q, user);
  }
  for (int r = 0; r < kRunResults; r++) {
    auto *result = static_cast<sch_runtime_job_status *>(sch_malloc_check(sizeof(sch_runtime_job_status), 4, 0, "bench"));
    std::snprintf(result->schedule, sizeof result->schedule, "schedule-%d", r / SCH_MAX_JOBS);
    result->job_id = static_cast<uint32_t>(r % SCH_MAX_JOBS);
    result->result[1] = static_cast<uint32_t>(r);
    sch_add_runtime_job_status_entry(&sch_running_config, result);
  }
}

void release_everything() {
  sch_free_config(&sch_running_config);
  sch_free_schedule_email_list(&sch_schedule_email_list);
  sch_free_user_config(&sch_uname_q);
}

struct Stores {
  Stores() {
    char pattern[] = "/tmp/sched-bench-XXXXXX";
    directory = mkdtemp(pattern);
    config = sch_pss_create((directory + "/config").c_str(), 1024, 1024, 40);
    results = sch_pss_create((directory + "/results").c_str(), 1024, 1024, 40);
  }
  ~Stores() {
    pss2_close(config);
    pss2_close(results);
    std::filesystem::remove_all(directory);
  }
  // Everything of the configuration, as the daemon keeps it current.
  void save_all() {
    sch_save_config_to_pss(&sch_running_config, config);
    pss2_batch_begin(config);
    for (GList *e = sch_schedule_email_list; e; e = e->next) {
      sch_save_schedule_email_entry_to_pss(config, static_cast<sch_schedule_email_entry *>(e->data));
    }
    pss2_batch_commit(config);
    sch_save_db_to_pss(&sch_running_config, results);
  }
  std::string directory;
  pss2_handle config = 0;
  pss2_handle results = 0;
};

void BM_SaveMaximalConfiguration(benchmark::State &state) {
  build_maximal_configuration();
  Stores stores;
  for (auto _ : state) stores.save_all();
  release_everything();
}
BENCHMARK(BM_SaveMaximalConfiguration)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_RestoreMaximalConfiguration(benchmark::State &state) {
  build_maximal_configuration();
  Stores stores;
  stores.save_all();
  release_everything();
  for (auto _ : state) {
    sch_restore_config_from_pss(&sch_running_config, stores.config, 0);
    sch_restore_db_from_pss(&sch_running_config, stores.results);
    state.PauseTiming();
    release_everything();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_RestoreMaximalConfiguration)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_SaveOneScheduleDurably(benchmark::State &state) {
  Stores stores;
  sch_config_key key{SCH_REC_SCHEDULE, 0, "one"};
  sch_schedule_record record{};
  sch_schedule_entry entry{&key, &record, {}};
  for (auto _ : state) {
    record.execution_count++;
    sch_save_schedule_entry_to_pss(stores.config, &entry);
  }
}
BENCHMARK(BM_SaveOneScheduleDurably)->Unit(benchmark::kMicrosecond);

}  // namespace

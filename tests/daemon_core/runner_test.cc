// The runner in-process on the tests' clock: fires at the instants the next-run computation gives,
// runs the jobs in order, records results, the run log, skips and missed fires, and reports a run
// that a stop cut short.
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>

#include "config/database.h"
#include "daemon_core/fake_time.h"
#include "daemon_core/in_process.h"
#include "runner/log_file.h"
#include "runner/run_log.h"
#include "runner/runner.h"

namespace in_process {
namespace {

class RunnerTest : public InProcessDaemon {
 protected:
  void SetUp() override {
    parts_.runner = true;
    set_zone("UTC");
  }
  void TearDown() override {
    InProcessDaemon::TearDown();
    set_fake_time(0);
    set_zone("UTC");
  }
  static void set_zone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  // Both clocks: the daemon's and the one the library reads.
  void move_to(std::time_t instant) {
    clock_.set_wall(instant);
    set_fake_time(instant);
  }
  static std::time_t local(int year, int month, int day, int hour, int minute) {
    tm fields{};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = hour;
    fields.tm_min = minute;
    fields.tm_isdst = -1;
    return mktime(&fields);
  }
  schedd::Runner &runner() { return *daemon_->runner(); }
  const schedd::ScheduleTimer &timer(const std::string &name) {
    const schedd::ScheduleTimer *found = runner().timers().find(name);
    EXPECT_NE(found, nullptr) << name;
    static schedd::ScheduleTimer none;
    return found ? *found : none;
  }
  // Runs the loop until the schedule's run is over (real time: the jobs are real processes).
  void finish_run(const std::string &schedule) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (runner().running(schedule) && std::chrono::steady_clock::now() < deadline) {
      g_main_context_iteration(daemon_->loop().context(), TRUE);
    }
    ASSERT_FALSE(runner().running(schedule)) << "the run did not end";
  }
  void job(const std::string &name, const std::string &text) {
    ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, name)), 0u);
    // Each stored job line ends with its newline, as the shell sends it.
    ASSERT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, name, text + "\n")), 0u);
  }
  void schedule(const std::string &name, uint32_t code, const tminfo &time, const std::vector<std::string> &jobs) {
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, name)), 0u);
    for (const std::string &job : jobs) ASSERT_EQ(configure(assign_request(name, job)), 0u);
    ASSERT_EQ(configure(modify_request(name, code, time)), 0u);
  }
  const sch_schedule_record &record(const std::string &name) {
    sch_schedule_entry *entry = nullptr;
    sch_find_schedule(schedd::database(), name.c_str(), &entry);
    return *entry->value;
  }
  std::vector<schedd::runner::RunLogEntry> run_log() {
    std::vector<schedd::runner::RunLogEntry> entries;
    EXPECT_TRUE(schedd::runner::read_run_log(schedd::log_file_location(schedd::stored_log_path(sch_log_file)), &entries));
    return entries;
  }
  uint32_t result_of(int job_id, const std::string &schedule) {
    for (GList *e = schedd::database()->jobs[job_id].run_results; e; e = e->next) {
      auto *result = static_cast<sch_runtime_job_status *>(e->data);
      if (schedule == result->schedule) return result->result[0];
    }
    return 0xffffffff;
  }
};

TEST_F(RunnerTest, AFireRunsEveryJobInIdOrderAndRecordsEachResult) {
  move_to(local(2026, 6, 1, 12, 0));
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(job("first", "echo one from $SCHEDULER_JOB; exit 3"));
  ASSERT_NO_FATAL_FAILURE(job("second", "echo two from $SCHEDULER_SCHEDULE"));
  ASSERT_NO_FATAL_FAILURE(schedule("noon", SCH_MODIFY_DAILY, daily(12, 1), {"second", "first"}));
  EXPECT_EQ(timer("noon").next, local(2026, 6, 1, 12, 1));

  move_to(local(2026, 6, 1, 12, 1));
  runner().fire_due();
  ASSERT_NO_FATAL_FAILURE(finish_run("noon"));
  EXPECT_EQ(record("noon").last_execution, local(2026, 6, 1, 12, 1));
  EXPECT_EQ(record("noon").execution_count, 1u);
  EXPECT_EQ(result_of(0, "noon"), 0x300u) << "exit 3 as wait reports it";
  EXPECT_EQ(result_of(1, "noon"), 0u);
  auto entries = run_log();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].job, "first");
  EXPECT_EQ(entries[0].output, "one from first\n");
  EXPECT_EQ(entries[1].output, "two from noon\n");
  EXPECT_EQ(timer("noon").next, local(2026, 6, 2, 12, 1)) << "armed for the next day";
  EXPECT_NE(runner().timers_text().find("Failed (3)"), std::string::npos) << runner().timers_text();

  // Results, counts and the log outlive a restart.
  stop();
  ASSERT_TRUE(start(false)) << error_;
  EXPECT_EQ(record("noon").execution_count, 1u);
  EXPECT_EQ(result_of(0, "noon"), 0x300u);
  EXPECT_EQ(run_log().size(), 2u);
}

TEST_F(RunnerTest, DailyFiresFollowTheZoneAcrossADaylightSavingChange) {
  set_zone("Europe/Berlin");
  move_to(local(2026, 3, 27, 12, 0));
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(job("j", "true"));
  ASSERT_NO_FATAL_FAILURE(schedule("night", SCH_MODIFY_DAILY, daily(3, 30), {"j"}));
  std::vector<std::time_t> fired;
  for (int day = 0; day < 3; day++) {
    std::time_t next = timer("night").next;
    ASSERT_EQ(next, schedd::library_next_run(record("night").time).value_or(0)) << "the library's instant";
    move_to(next);
    runner().fire_due();
    ASSERT_NO_FATAL_FAILURE(finish_run("night"));
    fired.push_back(next);
  }
  ASSERT_EQ(record("night").execution_count, 3u);
  // 28 March at 03:30 CET, then a day that is 23 hours long (as mktime places 03:30 from a CET
  // clock), then 03:30 CEST: never twice, never an instant skipped.
  EXPECT_EQ(fired[0], local(2026, 3, 28, 3, 30));
  EXPECT_LT(fired[0], fired[1]);
  EXPECT_LT(fired[1], fired[2]);
  EXPECT_EQ(fired[2], local(2026, 3, 30, 3, 30));
}

TEST_F(RunnerTest, AFireDuringARunIsSkippedAndARunCutShortIsReportedAtTheNextStart) {
  move_to(local(2026, 6, 1, 12, 0));
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(job("slow", "sleep 30"));
  tminfo every_minute{SCH_TM_REPEAT, 0, 0, 0, 1, 0, 0, static_cast<int32_t>(local(2026, 6, 1, 12, 1)), 0, 0};
  ASSERT_NO_FATAL_FAILURE(schedule("often", SCH_MODIFY_START_REPEAT, every_minute, {"slow"}));
  move_to(local(2026, 6, 1, 12, 1));
  runner().fire_due();
  ASSERT_TRUE(runner().running("often"));
  EXPECT_EQ(record("often").time.last_time, local(2026, 6, 1, 12, 1)) << "a repeat counts from its last fire";
  EXPECT_EQ(timer("often").next, local(2026, 6, 1, 12, 2));
  move_to(local(2026, 6, 1, 12, 2));
  runner().fire_due();
  EXPECT_EQ(timer("often").skipped, 1u);
  EXPECT_EQ(record("often").execution_count, 1u);

  // The daemon stops with the job running; after it comes back, the run is reported.
  stop();
  move_to(local(2026, 6, 1, 12, 2) + 10);
  ASSERT_TRUE(start(false)) << error_;
  auto entries = run_log();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].output,
            "the run was cut short: the scheduler stopped while the job ran (started Mon 2026-06-01 12:01:00 UTC)\n");
  EXPECT_TRUE(WIFSIGNALED(entries[0].wait_status));
  EXPECT_EQ(result_of(0, "often"), static_cast<uint32_t>(SIGKILL));
}

TEST_F(RunnerTest, FiresMissedWhileDownAreCountedNotReplayed) {
  move_to(local(2026, 6, 1, 12, 0));
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(job("j", "true"));
  ASSERT_NO_FATAL_FAILURE(schedule("daily", SCH_MODIFY_DAILY, daily(12, 1), {"j"}));
  tminfo every_hour{SCH_TM_REPEAT, 1, 0, 0, 0, 0, 0, static_cast<int32_t>(local(2026, 6, 1, 12, 1)), 0, 0};
  ASSERT_NO_FATAL_FAILURE(schedule("hourly", SCH_MODIFY_START_REPEAT, every_hour, {"j"}));
  move_to(local(2026, 6, 1, 12, 1));
  runner().fire_due();
  ASSERT_NO_FATAL_FAILURE(finish_run("daily"));
  ASSERT_NO_FATAL_FAILURE(finish_run("hourly"));
  stop();

  move_to(local(2026, 6, 3, 12, 30));  // down across two daily and 48 hourly instants
  ASSERT_TRUE(start(false)) << error_;
  EXPECT_EQ(timer("daily").missed, 2u);
  EXPECT_EQ(timer("hourly").missed, 48u);
  EXPECT_EQ(timer("hourly").next, local(2026, 6, 3, 13, 1)) << "the repeat goes on in step";
  EXPECT_EQ(timer("daily").next, local(2026, 6, 4, 12, 1));
  EXPECT_EQ(record("daily").execution_count, 1u) << "nothing replayed";
}

}  // namespace
}  // namespace in_process

// The runner in-process on the tests' clock: fires at the instants the next-run computation gives,
// runs the jobs in order, records results, the run log, skips and missed fires, and reports a run
// that a stop cut short. And its schedule timers alone, on a scripted next-run computation: arming,
// overlap, clock steps and one-shots.
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include "config/database.h"
#include "daemon_core/in_process.h"
#include "runner/log_file.h"
#include "runner/run_log.h"
#include "runner/runner.h"
#include "runner/schedule_timers.h"

void set_fake_time(std::time_t now);  // fake_time.cc

namespace in_process {
namespace {

void set_zone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::time_t local(int year, int month, int day, int hour, int minute) {
  tm fields{0, minute, hour, day, month - 1, year - 1900, 0, 0, -1, 0, nullptr};
  return mktime(&fields);
}

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
  // Both clocks: the daemon's and the one the library reads.
  void move_to(std::time_t instant) {
    clock_.set_wall(instant);
    set_fake_time(instant);
  }
  schedd::Runner &runner() { return *daemon_->runner(); }
  const schedd::ScheduleTimer &timer(const std::string &name) {
    const schedd::ScheduleTimer *found = runner().timers().find(name);
    if (!found) throw std::runtime_error("no timer for " + name);
    return *found;
  }
  // Runs the loop until the schedule's run is over (real time: the jobs are real processes).
  void finish_run(const std::string &schedule) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (runner().running(schedule) && std::chrono::steady_clock::now() < deadline) {
      g_main_context_iteration(daemon_->loop().context(), TRUE);
    }
    ASSERT_FALSE(runner().running(schedule)) << "the run did not end";
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
  ASSERT_NO_FATAL_FAILURE(make_job("first", "echo one from $SCHEDULER_JOB; exit 3\n"));
  ASSERT_NO_FATAL_FAILURE(make_job("second", "echo two from $SCHEDULER_SCHEDULE\n"));
  ASSERT_NO_FATAL_FAILURE(make_schedule("noon", SCH_MODIFY_DAILY, daily(12, 1), {"second", "first"}));
  EXPECT_EQ(timer("noon").next, local(2026, 6, 1, 12, 1));

  move_to(local(2026, 6, 1, 12, 1));
  runner().fire_due();
  ASSERT_NO_FATAL_FAILURE(finish_run("noon"));
  EXPECT_EQ(record("noon").last_execution, local(2026, 6, 1, 12, 1));
  EXPECT_EQ(result_of(0, "noon"), 0x300u) << "exit 3 as wait reports it";
  EXPECT_EQ(result_of(1, "noon"), 0u);
  auto entries = run_log();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].output, "one from first\n");
  EXPECT_EQ(entries[1].output, "two from noon\n");
  EXPECT_EQ(timer("noon").next, local(2026, 6, 2, 12, 1)) << "armed for the next day";
  EXPECT_NE(runner().timers_text().find("Failed (3)"), std::string::npos) << runner().timers_text();
  // (That results, counts and the log outlive a restart, e2e/runs_test.cc checks through the shell.)
}

TEST_F(RunnerTest, DailyFiresFollowTheZoneAcrossADaylightSavingChange) {
  set_zone("Europe/Berlin");
  move_to(local(2026, 3, 27, 12, 0));
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(make_job("j", "true\n"));
  ASSERT_NO_FATAL_FAILURE(make_schedule("night", SCH_MODIFY_DAILY, daily(3, 30), {"j"}));
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

TEST_F(RunnerTest, AfterADowntimeTheCutRunIsReportedAndMissedFiresCounted) {
  const std::time_t noon = local(2026, 6, 1, 12, 0), first = local(2026, 6, 1, 12, 1);
  move_to(noon);
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(make_job("slow", "sleep 30\n"));
  ASSERT_NO_FATAL_FAILURE(make_job("j", "true\n"));
  tminfo every_minute{SCH_TM_REPEAT, 0, 0, 0, 1, 0, 0, static_cast<int32_t>(first), 0, 0};
  ASSERT_NO_FATAL_FAILURE(make_schedule("often", SCH_MODIFY_START_REPEAT, every_minute, {"slow"}));
  ASSERT_NO_FATAL_FAILURE(make_schedule("daily", SCH_MODIFY_DAILY, daily(12, 1), {"j"}));
  tminfo every_hour{SCH_TM_REPEAT, 1, 0, 0, 0, 0, 0, static_cast<int32_t>(first), 0, 0};
  ASSERT_NO_FATAL_FAILURE(make_schedule("hourly", SCH_MODIFY_START_REPEAT, every_hour, {"j"}));
  move_to(first);
  runner().fire_due();
  ASSERT_NO_FATAL_FAILURE(finish_run("daily"));
  ASSERT_NO_FATAL_FAILURE(finish_run("hourly"));
  ASSERT_TRUE(runner().running("often"));
  EXPECT_EQ(record("often").time.last_time, first) << "a repeat counts from its last fire";
  EXPECT_EQ(timer("often").next, first + 60);

  // The daemon stops with the job running and is down across two daily and 48 hourly instants.
  stop();
  move_to(local(2026, 6, 3, 12, 30));
  ASSERT_TRUE(start(false)) << error_;
  auto entries = run_log();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[2].output,
            "the run was cut short: the scheduler stopped while the job ran (started Mon 2026-06-01 12:01:00 UTC)\n");
  EXPECT_TRUE(WIFSIGNALED(entries[2].wait_status));
  EXPECT_EQ(result_of(0, "often"), static_cast<uint32_t>(SIGKILL));
  EXPECT_EQ(timer("daily").missed, 2u);
  EXPECT_EQ(timer("hourly").missed, 48u);
  EXPECT_EQ(timer("hourly").next, local(2026, 6, 3, 13, 1)) << "the repeat goes on in step";
  EXPECT_EQ(timer("daily").next, local(2026, 6, 4, 12, 1));
  EXPECT_EQ(record("daily").execution_count, 1u) << "nothing replayed";
}

}  // namespace
}  // namespace in_process

namespace schedd {
namespace {

using Names = std::vector<std::string>;

class ScheduleTimersTest : public testing::Test {
 protected:
  // Each schedule's next run: the first scripted instant after now.
  std::optional<std::time_t> next_run(const tminfo &time) {
    for (std::time_t instant : script_[time.reserved]) {
      if (instant > clock_.wall_seconds()) return instant;
    }
    return std::nullopt;
  }
  static ScheduleFacts facts(int script, int type = SCH_TM_DAILY, bool runnable = true) {
    ScheduleFacts facts;
    facts.runnable = runnable;
    facts.time.type = type;
    facts.time.reserved = script;
    return facts;
  }
  Names due() {
    Names names;
    for (auto &[name, instant] : timers_.take_due([&](const std::string &n) { return facts_[n]; })) names.push_back(name);
    return names;
  }
  void add(const std::string &name, const ScheduleFacts &facts) {
    facts_[name] = facts;
    timers_.refresh(name, facts);
  }
  // The runner records a fire and refreshes the schedule's timer.
  void recorded(const std::string &name) { timers_.refresh(name, facts_[name]); }
  void recompute() { timers_.recompute_all([&](const std::string &n) { return facts_[n]; }); }

  ManualClock clock_{1000};
  std::map<int, std::vector<std::time_t>> script_{{1, {1100, 1200, 1300, 1400}}, {2, {1150, 1250}}, {3, {1050}}};
  std::map<std::string, ScheduleFacts> facts_;
  ScheduleTimers timers_{clock_, [this](const tminfo &time) { return next_run(time); }};
};

TEST_F(ScheduleTimersTest, ArmsEachScheduleAndFiresThemInInstantOrder) {
  add("a", facts(1));
  add("b", facts(2));
  add("idle", ScheduleFacts{});
  EXPECT_EQ(timers_.earliest(), 1100);
  EXPECT_EQ(timers_.find("idle")->state, TimerState::idle);
  EXPECT_TRUE(due().empty());
  clock_.advance(160);  // 1160: both due, in instant order
  EXPECT_EQ(due(), (Names{"a", "b"}));
  EXPECT_EQ(timers_.find("a")->shown(), TimerState::running);
  EXPECT_FALSE(timers_.earliest()) << "nothing armed until the fires are recorded";
  recorded("a");
  EXPECT_EQ(timers_.find("a")->next, 1200) << "armed for the instant after, while still running";
  EXPECT_EQ(timers_.find("a")->shown(), TimerState::running);
}

TEST_F(ScheduleTimersTest, AFireDuringARunIsSkippedAndAClockSetBackNeverRepeatsAFire) {
  add("a", facts(1));
  clock_.advance(100);
  ASSERT_EQ(due(), Names{"a"});
  recorded("a");
  clock_.advance(100);  // 1200: the run of 1100 still going
  EXPECT_TRUE(due().empty());
  EXPECT_EQ(timers_.find("a")->skipped, 1u);
  auto skipped = timers_.take_skipped();
  ASSERT_EQ(skipped.size(), 1u);
  EXPECT_EQ(skipped[0].second, 1200);
  EXPECT_EQ(timers_.find("a")->next, 1300);
  timers_.run_finished("a");
  clock_.advance(100);
  ASSERT_EQ(due(), Names{"a"});
  recorded("a");
  timers_.run_finished("a");

  clock_.set_wall(1250);  // back before the fire made at 1300
  recompute();
  EXPECT_EQ(timers_.find("a")->next, 1300);
  clock_.set_wall(1300);
  EXPECT_TRUE(due().empty()) << "1300 was fired already";
  EXPECT_EQ(timers_.find("a")->next, 1400);
  clock_.set_wall(1500);  // forward, past the last instant
  recompute();
  EXPECT_EQ(timers_.find("a")->state, TimerState::done) << "no instant left in the script";
}

TEST_F(ScheduleTimersTest, AOneShotIsDoneAfterItsRunAndAChangeRearmsOrIdles) {
  add("once", facts(3, SCH_TM_ONESHOT));
  clock_.advance(49);
  EXPECT_TRUE(due().empty());
  clock_.advance(1);
  ASSERT_EQ(due(), Names{"once"});
  recorded("once");  // the instant is now, already fired
  EXPECT_EQ(timers_.find("once")->state, TimerState::done);
  timers_.run_finished("once");
  EXPECT_EQ(timers_.find("once")->shown(), TimerState::done);

  add("a", facts(1));
  add("a", facts(1, SCH_TM_DAILY, false));  // its last job went, or the feature
  EXPECT_EQ(timers_.find("a")->state, TimerState::idle);
  EXPECT_FALSE(timers_.earliest());
  timers_.remove("a");
  EXPECT_EQ(timers_.find("a"), nullptr);
}

}  // namespace
}  // namespace schedd

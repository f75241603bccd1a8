// Schedule timers on a scripted next-run computation: arming, overlap, clock steps and one-shots.
#include "runner/schedule_timers.h"

#include <gtest/gtest.h>

#include <map>

namespace schedd {
namespace {

class ScheduleTimersTest : public testing::Test {
 protected:
  // Each schedule's next run: the first scripted instant after now.
  std::optional<std::time_t> next_run(const tminfo &time) {
    for (std::time_t instant : script_[time.reserved]) {
      if (instant > clock_.wall_seconds()) return instant;
    }
    return std::nullopt;
  }
  ScheduleFacts facts(int script, int type = SCH_TM_DAILY) {
    ScheduleFacts facts;
    facts.runnable = true;
    facts.time.type = type;
    facts.time.reserved = script;
    return facts;
  }
  std::vector<std::string> due() {
    std::vector<std::string> names;
    for (auto &[name, instant] : timers_.take_due([&](const std::string &n) { return facts_[n]; })) names.push_back(name);
    return names;
  }
  void add(const std::string &name, const ScheduleFacts &facts) {
    facts_[name] = facts;
    timers_.refresh(name, facts);
  }

  ManualClock clock_{1000};
  std::map<int, std::vector<std::time_t>> script_{{1, {1100, 1200, 1300}}, {2, {1150, 1250}}, {3, {1050}}};
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
  EXPECT_EQ(due(), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(timers_.find("a")->shown(), TimerState::running);
  EXPECT_FALSE(timers_.earliest()) << "nothing armed until the fires are recorded";
  // The runner records the fire and refreshes: armed for the instant after, while still running.
  timers_.refresh("a", facts_["a"]);
  EXPECT_EQ(timers_.find("a")->next, 1200);
  EXPECT_EQ(timers_.find("a")->shown(), TimerState::running);
}

TEST_F(ScheduleTimersTest, AFireWhileThePreviousRunGoesOnIsSkippedAndCounted) {
  add("a", facts(1));
  clock_.advance(100);
  ASSERT_EQ(due(), std::vector<std::string>{"a"});
  timers_.refresh("a", facts_["a"]);
  clock_.advance(100);  // 1200: the run of 1100 still going
  EXPECT_TRUE(due().empty());
  EXPECT_EQ(timers_.find("a")->skipped, 1u);
  auto skipped = timers_.take_skipped();
  ASSERT_EQ(skipped.size(), 1u);
  EXPECT_EQ(skipped[0].second, 1200);
  EXPECT_EQ(timers_.find("a")->next, 1300);
  timers_.run_finished("a");
  clock_.advance(100);
  EXPECT_EQ(due(), std::vector<std::string>{"a"});
}

TEST_F(ScheduleTimersTest, AClockSetBackNeverRepeatsAFire) {
  add("a", facts(1));
  clock_.advance(100);
  ASSERT_EQ(due(), std::vector<std::string>{"a"});
  timers_.refresh("a", facts_["a"]);
  timers_.run_finished("a");
  clock_.set_wall(1050);  // back before the fire made at 1100
  timers_.recompute_all([&](const std::string &n) { return facts_[n]; });
  EXPECT_EQ(timers_.find("a")->next, 1100);
  clock_.set_wall(1100);
  EXPECT_TRUE(due().empty()) << "1100 was fired already";
  EXPECT_EQ(timers_.find("a")->next, 1200);
  // Forward steps fire what they pass, once.
  clock_.set_wall(1400);
  timers_.recompute_all([&](const std::string &n) { return facts_[n]; });
  EXPECT_EQ(timers_.find("a")->state, TimerState::done) << "no instant left in the script";
}

TEST_F(ScheduleTimersTest, AOneShotIsDoneAfterItsRunAndAChangeRearmsOrIdles) {
  script_[3] = {1050};
  add("once", facts(3, SCH_TM_ONESHOT));
  clock_.advance(49);
  EXPECT_TRUE(due().empty());
  clock_.advance(1);
  ASSERT_EQ(due(), std::vector<std::string>{"once"});
  timers_.refresh("once", facts_["once"]);  // the instant is now, already fired
  EXPECT_EQ(timers_.find("once")->state, TimerState::done);
  timers_.run_finished("once");
  EXPECT_EQ(timers_.find("once")->shown(), TimerState::done);

  add("a", facts(1));
  ScheduleFacts off = facts(1);
  off.runnable = false;  // its last job went, or the feature
  add("a", off);
  EXPECT_EQ(timers_.find("a")->state, TimerState::idle);
  EXPECT_FALSE(timers_.earliest());
  timers_.remove("a");
  EXPECT_EQ(timers_.find("a"), nullptr);
}

}  // namespace
}  // namespace schedd

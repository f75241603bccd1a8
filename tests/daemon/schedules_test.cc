// Schedules: creation, time and job changes, deletion, and their email addresses.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonSchedules : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
    ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), 0));
  }
  Answer modify(uint32_t code, const tminfo &time, bool no_form = false) {
    return configure(modify_request("s1", code, time, "", no_form));
  }
  Answer email(uint8_t operation, const std::string &address, const std::string &schedule = "s1") {
    return configure(email_request(operation, schedule, address));
  }
};

TEST_F(DaemonSchedules, CreatedOnceEmptyAndForTheRequestingUser) {
  EXPECT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), SCH_STATUS_EXISTS));
  EXPECT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "bad/name")), SCH_STATUS_BAD_REQUEST));
  ScheduleEntry s1 = schedule("s1");
  EXPECT_EQ(s1.head.user, own_user());
  EXPECT_EQ(s1.head.time.type, 0);
  EXPECT_EQ(s1.head.any_email, 0u);
  EXPECT_TRUE(s1.jobs.empty());
}

TEST_F(DaemonSchedules, TimeIsStoredAsSentAndRefusedWhenTheTimersCouldNotUseIt) {
  tminfo weekly{SCH_TM_WEEKLY, 9, 2, 0, 5, 0, 0, 0, 0, 0};
  ASSERT_TRUE(answered(modify(SCH_MODIFY_WEEKLY, weekly), 0));
  tminfo stored = schedule("s1").head.time;
  EXPECT_EQ(std::memcmp(&stored, &weekly, sizeof weekly), 0);

  tminfo repeat{SCH_TM_REPEAT, 0, 0, 0, 1, 0, 0, static_cast<int32_t>(time(nullptr) + 120), 0, 0};
  EXPECT_TRUE(answered(modify(SCH_MODIFY_START_REPEAT, repeat), 0));
  repeat.minute = 0;
  EXPECT_TRUE(answered(modify(SCH_MODIFY_START_REPEAT, repeat), SCH_STATUS_OUT_OF_RANGE)) << "a zero interval";
  EXPECT_TRUE(answered(modify(SCH_MODIFY_DAILY, daily(24, 0)), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(modify(SCH_MODIFY_WEEKLY, daily(1, 0)), SCH_STATUS_BAD_REQUEST)) << "kind differs from code";
  EXPECT_TRUE(answered(modify(2, daily(1, 0)), SCH_STATUS_BAD_REQUEST)) << "no such sub-command";
  EXPECT_TRUE(answered(modify(SCH_MODIFY_DAILY, daily(1, 0), true), SCH_STATUS_BAD_REQUEST)) << "no 'no' form";
  EXPECT_TRUE(answered(configure(modify_request("nope", SCH_MODIFY_DAILY, daily(1, 0))), SCH_STATUS_NO_SUCH_SCHEDULE));
  EXPECT_EQ(schedule("s1").head.time.type, SCH_TM_REPEAT) << "refused times change nothing";
}

TEST_F(DaemonSchedules, JobsAreAssignedOnceAndDeassignedByNameOrAll) {
  for (std::string job : {"a", "b", "c"}) ASSERT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, job)), 0));
  for (std::string job : {"c", "a", "a", "b"}) ASSERT_TRUE(answered(configure(assign_request("s1", job)), 0));
  EXPECT_EQ(schedule("s1").job_names(), (Names{"a", "b", "c"})) << "once each, in job id order";
  EXPECT_TRUE(answered(configure(assign_request("s1", "nope")), SCH_STATUS_NO_SUCH_JOB));
  EXPECT_TRUE(answered(configure(assign_request("nope", "a")), SCH_STATUS_NO_SUCH_SCHEDULE));

  ASSERT_TRUE(answered(configure(assign_request("s1", "b", true)), 0));
  ASSERT_TRUE(answered(configure(assign_request("s1", "b", true)), 0)) << "not assigned: nothing to do";
  EXPECT_EQ(schedule("s1").job_names(), (Names{"a", "c"}));
  ASSERT_TRUE(answered(modify(SCH_MODIFY_JOB_NO_NAME, tminfo{}), 0));
  EXPECT_EQ(schedule("s1").head.job_count, 2u) << "the positive form names no job";
  ASSERT_TRUE(answered(modify(SCH_MODIFY_JOB_NO_NAME, tminfo{}, true), 0));
  EXPECT_TRUE(schedule("s1").jobs.empty());
}

TEST_F(DaemonSchedules, AddressesAreRemovedByExactNameAndGoWithTheirSchedule) {
  ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s10")), 0));
  for (auto [address, schedule] : {std::pair{"a@b.com", "s10"}, {"a@b.c", "s1"}, {"a@b.com", "s1"}}) {
    ASSERT_TRUE(answered(email(SCH_EMAIL_ADD, address, schedule), 0));
  }
  ASSERT_TRUE(answered(email(SCH_EMAIL_DELETE, "a@b.c"), 0));
  EXPECT_EQ(schedule("s1").addresses(), (Names{"", "a@b.com"}));
  ASSERT_TRUE(answered(email(SCH_EMAIL_DELETE, "a@b"), 0)) << "not an address of s1: nothing to do";
  ASSERT_TRUE(answered(email(SCH_EMAIL_DELETE, "a@b.com"), 0));
  EXPECT_EQ(schedule("s1").head.any_email, 0u);
  EXPECT_TRUE(answered(email(SCH_EMAIL_ADD, "x@y", "nope"), SCH_STATUS_NO_SUCH_SCHEDULE));
  EXPECT_TRUE(answered(email(22, "x@y"), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(email(SCH_EMAIL_ADD, ""), SCH_STATUS_BAD_REQUEST));
  // An address is one word of the configuration text.
  for (const char *broken : {"z /etc", "a@b\n", "a\t@b", "\x7f@b"}) {
    EXPECT_TRUE(answered(email(SCH_EMAIL_ADD, broken), SCH_STATUS_BAD_ADDRESS)) << broken;
  }

  ASSERT_TRUE(answered(email(SCH_EMAIL_ADD, "ops@example.com"), 0));
  ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_DELETE_SCHEDULE, "s1")), 0));
  EXPECT_TRUE(answered(configure(schedule_request(SCH_REQ_DELETE_SCHEDULE, "s1")), SCH_STATUS_NO_SUCH_SCHEDULE));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(schedule("s10").addresses(), Names{"a@b.com"});
  ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), 0));
  EXPECT_TRUE(schedule("s1").addresses().empty()) << "the old schedule's addresses went with it";
}

}  // namespace

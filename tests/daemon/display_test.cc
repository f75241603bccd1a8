// The display cursors: every entry once, in order, and an empty reply at the end.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonDisplay : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  bool ends(uint32_t type, const std::string &name, int32_t cursor) {
    Answer answer = display(display_request(type, name, cursor));
    return answer.status == 0 && answer.payload.empty();
  }
};

TEST_F(DaemonDisplay, JobCursorWalksTheTableInIdOrder) {
  for (std::string name : {"j0", "j1", "j2", "j3", "j4"}) {
    ASSERT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, name)), 0));
  }
  ASSERT_TRUE(answered(configure(job_request(SCH_REQ_DELETE_JOB, "j2")), 0));
  EXPECT_EQ(job_names(), (Names{"j0", "j1", "j3", "j4"}));
  EXPECT_EQ(decode_job(display(display_request(SCH_REQ_GET_JOBS, "", 2)).payload).cursor, 4u);
  for (int32_t past_end : {SCH_MAX_JOBS, 5, -2, INT32_MIN}) EXPECT_TRUE(ends(SCH_REQ_GET_JOBS, "", past_end));

  JobEntry j3 = decode_job(display(display_request(SCH_REQ_GET_JOBS, "j3", -1)).payload);
  EXPECT_EQ(j3.name, "j3");
  EXPECT_TRUE(ends(SCH_REQ_GET_JOBS, "j3", static_cast<int32_t>(j3.cursor)));
  EXPECT_TRUE(ends(SCH_REQ_GET_JOBS, "j2", -1));
}

TEST_F(DaemonDisplay, ScheduleCursorNeitherRepeatsNorSkipsWhileOthersGo) {
  for (std::string name : {"s4", "s1", "s3", "s2"}) {
    ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, name)), 0));
  }
  ScheduleEntry first = decode_schedule(display(display_request(SCH_REQ_GET_SCHEDULES, "", -1)).payload);
  ASSERT_STREQ(first.head.name, "s4");
  for (std::string name : {"s4", "s1"}) {
    ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_DELETE_SCHEDULE, name)), 0));
  }
  ScheduleEntry next =
      decode_schedule(display(display_request(SCH_REQ_GET_SCHEDULES, "", static_cast<int32_t>(first.head.cursor))).payload);
  EXPECT_STREQ(next.head.name, "s3");
  ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), 0));
  EXPECT_EQ(schedule_names(), (Names{"s3", "s2", "s1"})) << "creation order";
  EXPECT_TRUE(ends(SCH_REQ_GET_SCHEDULES, "s4", -1));
  EXPECT_TRUE(ends(SCH_REQ_GET_SCHEDULES, "", -7));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(schedule_names(), (Names{"s3", "s2", "s1"})) << "not the store's name order";
}

}  // namespace

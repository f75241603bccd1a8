// A configuration applied as one: under store faults (the N-th store or delete fails, N = 1, 2, ...)
// every failed apply leaves memory and stores exactly as before; one refused record refuses all;
// a check changes nothing; the parts of an apply hold together.
#include "daemon_core/in_process.h"
#include "schedcli/status.h"

namespace in_process {
namespace {

Bytes apply_part(uint8_t mode, uint8_t flags, const std::vector<Bytes> &records) {
  Bytes payload{mode, flags};
  for (const Bytes &record : records) {
    uint8_t length[4];
    sch_wire_put_u32(length, static_cast<uint32_t>(record.size()));
    payload.insert(payload.end(), length, length + 4);
    payload.insert(payload.end(), record.begin(), record.end());
  }
  return payload;
}

// Adds, changes and removes something of every kind that an apply carries.
std::vector<Bytes> replacing_records() {
  return {schedule_request(SCH_REQ_DELETE_SCHEDULE, "zeta"),
          job_request(SCH_REQ_DELETE_JOB, "rotate"),
          job_request(SCH_REQ_DEFINE_JOB, "backup", "tar cf /b /etc\n"),
          job_request(SCH_REQ_CREATE_JOB, "fresh"),
          job_request(SCH_REQ_DEFINE_JOB, "fresh", std::string(3000, 'f') + "\n"),
          schedule_request(SCH_REQ_CREATE_SCHEDULE, "new"),
          modify_request("new", SCH_MODIFY_DAILY, daily(4, 15)),
          assign_request("new", "fresh"),
          assign_request("alpha", "backup", true),
          email_request(SCH_EMAIL_ADD, "new", "dev@example.com"),
          email_request(SCH_EMAIL_DELETE, "alpha", "ops@example.com")};
}

class Apply : public InProcessDaemon {
 protected:
  schedd::Reply apply(uint8_t mode, const std::vector<Bytes> &records) {
    return call(ACFG_SERVICE, ACFG_OP_APPLY, apply_part(mode, ACFG_APPLY_FIRST | ACFG_APPLY_LAST, records));
  }
};

TEST_F(Apply, AFailedApplyLeavesEverythingAsBefore) {
  for (pss2_fault_operation operation : {PSS2_FAULT_STORE, PSS2_FAULT_DELETE}) {
    SCOPED_TRACE(operation == PSS2_FAULT_STORE ? "store" : "delete");
    ASSERT_TRUE(start()) << error_;
    ASSERT_NO_FATAL_FAILURE(configure_everything());
    const Snapshot before = snapshot();
    Snapshot after;
    uint64_t nth = 1;
    for (; nth < 500; nth++) {
      pss2_fault_set(operation, nth, PSS2_ERR_IO, 0);
      uint32_t status = apply(ACFG_APPLY_COMMIT, replacing_records()).status;
      pss2_fault_clear_all();
      if (status == 0) break;
      ASSERT_EQ(snapshot(), before) << "failure " << nth << " (" << syserr2str(status) << ") changed something";
    }
    ASSERT_LT(nth, 500u) << "the apply never went through";
    EXPECT_GT(nth, 1u) << "no fault reached the apply";
    after = snapshot();
    EXPECT_NE(after.text, before.text);
    EXPECT_NE(after.text.find("scheduler schedule name new"), std::string::npos) << after.text;
    EXPECT_EQ(after.text.find("rotate"), std::string::npos) << after.text;
    // What memory shows is what a restart finds.
    stop();
    ASSERT_TRUE(start(false)) << error_;
    EXPECT_EQ(snapshot(), after);
    start_afresh();
  }
}

TEST_F(Apply, OneRefusedRecordRefusesAllAndIsNamed) {
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(configure_everything());
  const Snapshot before = snapshot();
  std::vector<Bytes> records = replacing_records();
  records.push_back(assign_request("new", "missing"));
  records.push_back(header_request(SCH_REQ_LOG_CLEAR));  // nothing an apply carries
  schedd::Reply reply = apply(ACFG_APPLY_COMMIT, records);
  EXPECT_EQ(reply.status, SCH_STATUS_NO_SUCH_JOB);
  Bytes expected;
  for (uint32_t word : {uint32_t(records.size() - 2), SCH_STATUS_NO_SUCH_JOB, uint32_t(records.size() - 1),
                        SCH_STATUS_BAD_REQUEST}) {
    uint8_t bytes[4];
    sch_wire_put_u32(bytes, word);
    expected.insert(expected.end(), bytes, bytes + 4);
  }
  EXPECT_EQ(reply.payload, expected);
  EXPECT_EQ(snapshot(), before);

  // A check of changes that hold answers 0 and changes nothing either.
  EXPECT_EQ(apply(ACFG_APPLY_CHECK, replacing_records()).status, 0u);
  EXPECT_EQ(snapshot(), before);
}

TEST_F(Apply, PartsAreGatheredUntilTheLast) {
  ASSERT_TRUE(start()) << error_;
  const Snapshot before = snapshot();
  // A part that continues no apply, and one whose length word runs past its end, are refused.
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_APPLY, apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_LAST, {})).status,
            SCH_STATUS_BAD_REQUEST);
  Bytes torn = apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST, {job_request(SCH_REQ_CREATE_JOB, "a")});
  torn.pop_back();
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_APPLY, torn).status, SCH_STATUS_BAD_REQUEST);

  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_APPLY,
                 apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST, {job_request(SCH_REQ_CREATE_JOB, "a")}))
                .status,
            0u);
  EXPECT_EQ(snapshot(), before) << "a part changed something before the last";
  schedd::Reply last = call(ACFG_SERVICE, ACFG_OP_APPLY,
                            apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_LAST,
                                       {schedule_request(SCH_REQ_CREATE_SCHEDULE, "s"), assign_request("s", "a")}));
  EXPECT_EQ(last.status, 0u) << syserr2str(last.status);
  std::string text = running_text();
  EXPECT_NE(text.find("scheduler schedule name s\n  job name a"), std::string::npos) << text;
}

}  // namespace
}  // namespace in_process

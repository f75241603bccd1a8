// Changes are whole or nothing. Under store faults (the N-th store, delete or read fails, for N = 1,
// 2, ... until the operation goes through) every kind of change, an apply of many and a start-up leave
// the configuration and the stores exactly as before, and what the success leaves is what a restart
// finds; one refused record refuses a whole apply, a check changes nothing, and an apply's parts
// hold together.
#include "daemon_core/in_process.h"
#include "schedcli/status.h"

namespace in_process {
namespace {

// Each value as a big-endian word.
Bytes words(std::initializer_list<uint32_t> values) {
  Bytes bytes;
  for (uint32_t value : values) {
    uint8_t word[4];
    sch_wire_put_u32(word, value);
    bytes.insert(bytes.end(), word, word + 4);
  }
  return bytes;
}

Bytes apply_part(uint8_t mode, uint8_t flags, const std::vector<Bytes> &records) {
  Bytes payload{mode, flags};
  for (const Bytes &record : records) {
    Bytes length = words({static_cast<uint32_t>(record.size())});
    payload.insert(payload.end(), length.begin(), length.end());
    payload.insert(payload.end(), record.begin(), record.end());
  }
  return payload;
}

// Adds, changes and removes something of every kind that an apply carries.
std::vector<Bytes> replacing_records() {
  return {schedule_request(SCH_REQ_DELETE_SCHEDULE, "zeta"), job_request(SCH_REQ_DELETE_JOB, "rotate"),
          job_request(SCH_REQ_DEFINE_JOB, "backup", "tar cf /b /etc\n"), job_request(SCH_REQ_CREATE_JOB, "fresh"),
          job_request(SCH_REQ_DEFINE_JOB, "fresh", std::string(3000, 'f') + "\n"),
          schedule_request(SCH_REQ_CREATE_SCHEDULE, "new"), modify_request("new", SCH_MODIFY_DAILY, daily(4, 15)),
          assign_request("new", "fresh"), assign_request("alpha", "backup", true),
          email_request(SCH_EMAIL_ADD, "new", "dev@example.com"),
          email_request(SCH_EMAIL_DELETE, "alpha", "ops@example.com")};
}

// One change to what configure_everything() makes, as a configuration request unless it says otherwise.
struct Change {
  const char *name;
  Bytes request;
  uint32_t service = SCH_SERVICE_CONFIG;
  uint32_t opcode = SCH_OPCODE_CONFIG;
};

const Change kChanges[] = {
    {"create a job", job_request(SCH_REQ_CREATE_JOB, "fresh")},
    {"shorten a job's text", job_request(SCH_REQ_DEFINE_JOB, "backup", "tar cf /b /etc\n")},
    {"lengthen a job's text", job_request(SCH_REQ_DEFINE_JOB, "rotate", std::string(2999, 'r') + "\n")},
    {"delete an assigned job", job_request(SCH_REQ_DELETE_JOB, "backup")},
    {"create a schedule", schedule_request(SCH_REQ_CREATE_SCHEDULE, "new")},
    {"set a schedule's time", modify_request("alpha", SCH_MODIFY_DAILY, daily(4, 15))},
    {"unassign a job", assign_request("alpha", "rotate", true)},
    {"delete a schedule with addresses", schedule_request(SCH_REQ_DELETE_SCHEDULE, "zeta")},
    {"add an address", email_request(SCH_EMAIL_ADD, "alpha", "dev@example.com")},
    {"remove the last address", email_request(SCH_EMAIL_DELETE, "zeta", "ops@example.com")},
    {"store a credential", credential_request(SCH_CREDENTIAL_STORE, "bob", "7$other")},
    {"delete a credential", credential_request(SCH_CREDENTIAL_DELETE, "alice")},
    {"size the log file", log_file_request(SCH_REQ_LOG_SIZE, false, "", 8192)},
    {"clear the sender", transport_request(SCH_REQ_NO_EMAIL_FROM, {})},
    {"turn the feature off", InProcessDaemon::named(FM_FEATURE_DISABLE, "scheduler"), FM_SERVICE, FM_FEATURE_DISABLE},
    {"apply many", apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST | ACFG_APPLY_LAST, replacing_records()),
     ACFG_SERVICE, ACFG_OP_APPLY},
};

class AllOrNothing : public InProcessDaemon {
 protected:
  schedd::Reply apply(uint8_t mode, uint8_t flags, const std::vector<Bytes> &records) {
    return call(ACFG_SERVICE, ACFG_OP_APPLY, apply_part(mode, flags, records));
  }
  uint32_t make(const Change &change) { return call(change.service, change.opcode, change.request).status; }
};

TEST_F(AllOrNothing, AChangeThatFailsLeavesEverythingAsBefore) {
  std::map<std::string, uint64_t> attempts;
  for (pss2_fault_operation operation : {PSS2_FAULT_STORE, PSS2_FAULT_DELETE}) {
    for (const Change &change : kChanges) {
      SCOPED_TRACE(std::string(change.name) + (operation == PSS2_FAULT_STORE ? " (store)" : " (delete)"));
      ASSERT_TRUE(start()) << error_;
      ASSERT_NO_FATAL_FAILURE(configure_everything());
      const Snapshot before = snapshot();
      uint64_t nth = 1;
      for (;; nth++) {
        ASSERT_LT(nth, 500u) << "never went through";
        pss2_fault_set(operation, nth, PSS2_ERR_IO, 0);
        uint32_t status = make(change);
        pss2_fault_clear_all();
        if (status == 0) break;
        ASSERT_EQ(snapshot(), before) << "failure " << nth << " (" << syserr2str(status) << ") changed something";
      }
      const Snapshot after = snapshot();
      EXPECT_NE(after.text, before.text) << "the change changed nothing";
      attempts[change.name] += nth;
      // What memory shows is what a restart finds.
      restart();
      EXPECT_EQ(snapshot(), after);
      start_afresh();
    }
  }
  for (const Change &change : kChanges) EXPECT_GT(attempts[change.name], 2u) << change.name << ": no fault reached it";
}

TEST_F(AllOrNothing, AnApplyIsOneChangeGatheredUntilItsLastPart) {
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(configure_everything());
  Snapshot before = snapshot();
  // One refused record refuses all, and each refused one is named with its status.
  std::vector<Bytes> records = replacing_records();
  records.push_back(assign_request("new", "missing"));
  records.push_back(header_request(SCH_REQ_LOG_CLEAR));  // nothing an apply carries
  schedd::Reply reply = apply(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST | ACFG_APPLY_LAST, records);
  EXPECT_EQ(reply.status, SCH_STATUS_NO_SUCH_JOB);
  EXPECT_EQ(reply.payload, words({uint32_t(records.size() - 2), SCH_STATUS_NO_SUCH_JOB, uint32_t(records.size() - 1),
                                  SCH_STATUS_BAD_REQUEST}));
  EXPECT_EQ(snapshot(), before);
  // A check of changes that hold answers 0 and changes nothing either; the commit makes them all.
  EXPECT_EQ(apply(ACFG_APPLY_CHECK, ACFG_APPLY_FIRST | ACFG_APPLY_LAST, replacing_records()).status, 0u);
  EXPECT_EQ(snapshot(), before);
  ASSERT_EQ(apply(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST | ACFG_APPLY_LAST, replacing_records()).status, 0u);
  std::string text = running_text();
  EXPECT_NE(text.find("scheduler schedule name new\n  job name fresh"), std::string::npos) << text;
  EXPECT_EQ(text.find("rotate"), std::string::npos) << text;

  // A part that continues no apply, and one whose length word runs past its end, are refused.
  before = snapshot();
  EXPECT_EQ(apply(ACFG_APPLY_COMMIT, ACFG_APPLY_LAST, {}).status, SCH_STATUS_BAD_REQUEST);
  Bytes torn = apply_part(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST, {job_request(SCH_REQ_CREATE_JOB, "a")});
  torn.pop_back();
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_APPLY, torn).status, SCH_STATUS_BAD_REQUEST);
  EXPECT_EQ(apply(ACFG_APPLY_COMMIT, ACFG_APPLY_FIRST, {job_request(SCH_REQ_CREATE_JOB, "a")}).status, 0u);
  EXPECT_EQ(snapshot(), before) << "a part changed something before the last";
  schedd::Reply last = apply(ACFG_APPLY_COMMIT, ACFG_APPLY_LAST,
                             {schedule_request(SCH_REQ_CREATE_SCHEDULE, "s"), assign_request("s", "a")});
  EXPECT_EQ(last.status, 0u) << syserr2str(last.status);
  text = running_text();
  EXPECT_NE(text.find("scheduler schedule name s\n  job name a"), std::string::npos) << text;
}

// A stateless start either comes up with the whole startup configuration durable in the running
// store, or refuses to serve; a start after a refused one takes the startup configuration again
// rather than the part the refused one wrote. Then reads that fail while the running store is
// restored: the daemon serves everything or refuses. Value reads are failed for the schedule, job
// and condition records, which the start-up checks; a log-file or transport record that cannot be
// read leaves its defaults.
TEST_F(AllOrNothing, AStartUnderStoreFaultsIsWholeOrRefused) {
  ASSERT_TRUE(start()) << error_;
  ASSERT_NO_FATAL_FAILURE(configure_everything());
  ASSERT_EQ(copy_to_startup(), 0u);
  const std::string saved = running_text();
  EXPECT_EQ(startup_text(), saved) << "the startup text lists schedules as the running text does";
  EXPECT_LT(saved.find("schedule name alpha"), saved.find("schedule name zeta")) << "name order";
  stop();
  // Every store from the N-th on fails, until N passes the last store a stateless start makes; then
  // the N-th alone, for each of those.
  uint64_t stores = 0;
  for (int persistent : {1, 0}) {
    for (uint64_t nth = 1; persistent || nth <= stores; nth++) {
      ASSERT_LT(nth, 500u) << "start-up never succeeded";
      std::filesystem::remove_all(options().runtime_dir);
      pss2_fault_set(PSS2_FAULT_STORE, nth, PSS2_ERR_FULL, persistent);
      bool started = start(false);
      pss2_fault_clear_all();
      if (started) {
        EXPECT_EQ(running_text(), saved) << "store " << nth << (persistent ? " on" : "");
      } else {
        EXPECT_NE(error_.find("configuration"), std::string::npos) << error_;
      }
      // What a crash restart finds, or the next start after a refused one.
      restart();
      EXPECT_EQ(running_text(), saved) << "after store " << nth << (persistent ? " on" : "") << " failed";
      stop();
      if (started && persistent) {
        stores = nth - 1;
        break;
      }
    }
  }
  EXPECT_GT(stores, 10u) << "the faults never reached the start-up";

  constexpr uint64_t kCheckedValues = 9;  // 2 schedules, 2 job headers with 4 fragments, the condition
  for (pss2_fault_operation operation : {PSS2_FAULT_OPEN, PSS2_FAULT_MOVE, PSS2_FAULT_GETKEY, PSS2_FAULT_GETVALUE}) {
    for (uint64_t nth = 1; operation != PSS2_FAULT_GETVALUE || nth <= kCheckedValues; nth++) {
      ASSERT_LT(nth, 200u);
      pss2_fault_set(operation, nth, PSS2_ERR_IO, 0);
      bool started = start(false);
      pss2_fault_clear_all();
      if (started) {
        ASSERT_EQ(running_text(), saved) << "operation " << operation << " failure " << nth;
        stop();
        break;
      }
      EXPECT_NE(error_.find("configuration"), std::string::npos) << error_;
      stop();
    }
  }
}

}  // namespace
}  // namespace in_process

// Every kind of change under store faults: the N-th store or delete fails, for N = 1, 2, ... until
// the change goes through. After each failure the configuration and the stores are exactly as
// before; after the success, exactly as a change without faults leaves them.
#include <functional>

#include "daemon_core/in_process.h"

namespace in_process {
namespace {

struct Change {
  const char *name;
  std::function<uint32_t(InProcessDaemon &)> apply;
};

class ModelFaults : public InProcessDaemon, public testing::WithParamInterface<pss2_fault_operation> {
 protected:
  // Runs `change` under the fault loop and returns what it left, checking each failed attempt.
  Snapshot loop(const Change &change, const Snapshot &before) {
    for (uint64_t nth = 1; nth < 500; nth++) {
      pss2_fault_set(GetParam(), nth, PSS2_ERR_IO, 0);
      uint32_t status = change.apply(*this);
      pss2_fault_clear_all();
      if (status == 0) return snapshot();
      EXPECT_EQ(snapshot(), before) << change.name << ": failure " << nth << " (" << syserr2str(status)
                                    << ") changed something";
    }
    ADD_FAILURE() << change.name << " never went through";
    return {};
  }
};

// Each change, applied to the configuration that configure_everything() makes.
const Change kChanges[] = {
    {"create a job", [](InProcessDaemon &d) { return d.configure(job_request(SCH_REQ_CREATE_JOB, "fresh")); }},
    {"shorten a job's text",
     [](InProcessDaemon &d) { return d.configure(job_request(SCH_REQ_DEFINE_JOB, "backup", "tar cf /b /etc\n")); }},
    {"lengthen a job's text",
     [](InProcessDaemon &d) { return d.configure(job_request(SCH_REQ_DEFINE_JOB, "rotate", std::string(2999, 'r') + "\n")); }},
    {"delete an assigned job", [](InProcessDaemon &d) { return d.configure(job_request(SCH_REQ_DELETE_JOB, "backup")); }},
    {"create a schedule", [](InProcessDaemon &d) { return d.configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "new")); }},
    {"set a schedule's time",
     [](InProcessDaemon &d) { return d.configure(modify_request("alpha", SCH_MODIFY_DAILY, daily(4, 15))); }},
    {"unassign a job", [](InProcessDaemon &d) { return d.configure(assign_request("alpha", "rotate", true)); }},
    {"delete a schedule with addresses",
     [](InProcessDaemon &d) { return d.configure(schedule_request(SCH_REQ_DELETE_SCHEDULE, "zeta")); }},
    {"add an address",
     [](InProcessDaemon &d) { return d.configure(email_request(SCH_EMAIL_ADD, "alpha", "dev@example.com")); }},
    {"remove the last address",
     [](InProcessDaemon &d) { return d.configure(email_request(SCH_EMAIL_DELETE, "zeta", "ops@example.com")); }},
    {"store a credential",
     [](InProcessDaemon &d) { return d.configure(credential_request(SCH_CREDENTIAL_STORE, "bob", "7$other")); }},
    {"delete a credential",
     [](InProcessDaemon &d) { return d.configure(credential_request(SCH_CREDENTIAL_DELETE, "alice")); }},
    {"size the log file",
     [](InProcessDaemon &d) { return d.configure(log_file_request(SCH_REQ_LOG_SIZE, false, "", 8192)); }},
    {"clear the sender",
     [](InProcessDaemon &d) { return d.configure(transport_request(SCH_REQ_NO_EMAIL_FROM, {})); }},
    {"turn the feature off", [](InProcessDaemon &d) { return d.feature(FM_FEATURE_DISABLE); }},
};

TEST_P(ModelFaults, AFailedChangeLeavesEverythingAsBefore) {
  for (const Change &change : kChanges) {
    SCOPED_TRACE(change.name);
    ASSERT_TRUE(start()) << error_;
    ASSERT_NO_FATAL_FAILURE(configure_everything());
    Snapshot before = snapshot();
    Snapshot after = loop(change, before);
    EXPECT_NE(after, before) << "the change changed nothing";
    // What memory shows is what a restart finds.
    stop();
    ASSERT_TRUE(start(false)) << error_;
    EXPECT_EQ(snapshot(), after);
    start_afresh();
  }
}

INSTANTIATE_TEST_SUITE_P(StoreAndDelete, ModelFaults, testing::Values(PSS2_FAULT_STORE, PSS2_FAULT_DELETE),
                         [](const testing::TestParamInfo<pss2_fault_operation> &info) {
                           return info.param == PSS2_FAULT_STORE ? std::string("Store") : std::string("Delete");
                         });

}  // namespace
}  // namespace in_process

// Who may do what, asked of the daemon in-process as root and as two users of its group; and the
// texts it refuses because the configuration text could not carry them back.
#include "daemon_core/in_process.h"
#include "schedcli/platform/secrets.h"
#include "schedcli/status.h"

namespace in_process {
namespace {

// Uids no test machine gives to its own account, so that neither counts as the daemon's.
const schedd::Caller kAlice{60001, "alice"};
const schedd::Caller kBob{60002, "bob"};

class Permissions : public InProcessDaemon {
 protected:
  void SetUp() override {
    ASSERT_TRUE(start()) << error_;
    // Alice's schedule runs her job; root's schedule runs root's job.
    ASSERT_EQ(as(kAlice, job_request(SCH_REQ_CREATE_JOB, "ajob")), 0u);
    ASSERT_EQ(as(kAlice, schedule_request(SCH_REQ_CREATE_SCHEDULE, "asched")), 0u);
    ASSERT_EQ(as(kAlice, assign_request("asched", "ajob")), 0u);
    ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "rjob")), 0u);
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "rsched")), 0u);
    ASSERT_EQ(configure(assign_request("rsched", "rjob")), 0u);
  }

  schedd::Reply ask(const schedd::Caller &caller, uint32_t service, uint32_t opcode, const Bytes &request) {
    return daemon_->handle(service, opcode, request, caller);
  }
  uint32_t as(const schedd::Caller &caller, const Bytes &request) {
    return ask(caller, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request).status;
  }
  std::string text_as(const schedd::Caller &caller) {
    schedd::Reply reply = ask(caller, ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, Bytes{ACFG_CFG_RUNNING, 0});
    return std::string(reply.payload.begin(), reply.payload.end());
  }
  schedd::Reply secret(const schedd::Caller &caller, uint32_t opcode, const std::string &text) {
    return ask(caller, SECRETS_SERVICE, opcode, Bytes(text.begin(), text.end()));
  }
};

TEST_F(Permissions, AUserChangesOnlyHerSchedulesAndTheJobsOnlyTheyRun) {
  // Bob may touch nothing of alice's or root's.
  for (const Bytes &request :
       {modify_request("asched", SCH_MODIFY_DAILY, daily(1, 0)), assign_request("asched", "ajob", true),
        email_request(SCH_EMAIL_ADD, "asched", "bob@example.com"), schedule_request(SCH_REQ_DELETE_SCHEDULE, "asched"),
        job_request(SCH_REQ_DEFINE_JOB, "ajob", "rm -rf /\n"), job_request(SCH_REQ_DELETE_JOB, "ajob"),
        job_request(SCH_REQ_DEFINE_JOB, "rjob", "id\n"), modify_request("rsched", SCH_MODIFY_DAILY, daily(1, 0))}) {
    EXPECT_EQ(as(kBob, request), SCH_STATUS_NOT_PERMITTED);
  }
  // Nor take alice's job onto a schedule of his own, which would take it out of her hands.
  ASSERT_EQ(as(kBob, schedule_request(SCH_REQ_CREATE_SCHEDULE, "bsched")), 0u);
  EXPECT_EQ(as(kBob, assign_request("bsched", "ajob")), SCH_STATUS_NOT_PERMITTED);
  // Alice may not change the job root's schedule runs (it would run as root), nor put hers there.
  EXPECT_EQ(as(kAlice, job_request(SCH_REQ_DEFINE_JOB, "rjob", "id\n")), SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(as(kAlice, assign_request("rsched", "ajob")), SCH_STATUS_NOT_PERMITTED);

  // Alice manages her own; a job on no schedule is anyone's to take.
  EXPECT_EQ(as(kAlice, modify_request("asched", SCH_MODIFY_DAILY, daily(3, 15))), 0u);
  EXPECT_EQ(as(kAlice, email_request(SCH_EMAIL_ADD, "asched", "alice@example.com")), 0u);
  EXPECT_EQ(as(kAlice, job_request(SCH_REQ_DEFINE_JOB, "ajob", "echo hi\n")), 0u);
  ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "free")), 0u);
  EXPECT_EQ(as(kBob, assign_request("bsched", "free")), 0u);
  // Once root runs alice's job too, only root may change it.
  ASSERT_EQ(configure(assign_request("rsched", "ajob")), 0u);
  EXPECT_EQ(as(kAlice, job_request(SCH_REQ_DEFINE_JOB, "ajob", "id\n")), SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(as(kAlice, job_request(SCH_REQ_DELETE_JOB, "ajob")), SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(as(kAlice, schedule_request(SCH_REQ_DELETE_SCHEDULE, "asched")), 0u);

  // Root may do all of it.
  EXPECT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "ajob", "id\n")), 0u);
  EXPECT_EQ(configure(assign_request("bsched", "ajob")), 0u);
  EXPECT_EQ(configure(schedule_request(SCH_REQ_DELETE_SCHEDULE, "bsched")), 0u);
  EXPECT_EQ(configure(job_request(SCH_REQ_DELETE_JOB, "ajob")), 0u);
  // Unknown objects are reported as such, to anyone.
  EXPECT_EQ(as(kBob, schedule_request(SCH_REQ_DELETE_SCHEDULE, "nothing")), SCH_STATUS_NO_SUCH_SCHEDULE);
  EXPECT_EQ(as(kBob, job_request(SCH_REQ_DELETE_JOB, "nothing")), SCH_STATUS_NO_SUCH_JOB);
}

TEST_F(Permissions, OnlyRootAdministersTheScheduler) {
  sch_email_transport_conf conf{};
  std::strcpy(conf.from, "sched@example.com");
  for (const Bytes &request : {transport_request(SCH_REQ_EMAIL_FROM, conf), transport_request(SCH_REQ_NO_EMAIL_SMTP, conf),
                               log_file_request(SCH_REQ_LOG_SIZE, false, "", 4096),
                               log_file_request(SCH_REQ_LOG_CLEAR, false), log_file_request(SCH_REQ_LOG_NAME, true)}) {
    EXPECT_EQ(as(kAlice, request), SCH_STATUS_NOT_PERMITTED);
  }
  Bytes off{FM_FEATURE_DISABLE};
  for (char c : std::string("scheduler")) off.push_back(static_cast<uint8_t>(c));
  off.push_back(0);
  EXPECT_EQ(ask(kAlice, FM_SERVICE, FM_FEATURE_DISABLE, off).status, SCH_STATUS_NOT_PERMITTED);
  EXPECT_EQ(ask(kAlice, ACFG_SERVICE, ACFG_OP_COPY_STARTUP, Bytes{0}).status, SCH_STATUS_NOT_PERMITTED);
  Bytes level{3};
  for (char c : std::string("scheduler")) level.push_back(static_cast<uint8_t>(c));
  level.push_back(0);
  EXPECT_EQ(ask(kAlice, ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL, level).status, SCH_STATUS_NOT_PERMITTED);
  EXPECT_NE(running_text().find("scheduler job name ajob"), std::string::npos) << "the feature stayed on";

  EXPECT_EQ(configure(transport_request(SCH_REQ_EMAIL_FROM, conf)), 0u);
  EXPECT_EQ(copy_to_startup(), 0u);
  EXPECT_EQ(feature(FM_FEATURE_DISABLE), 0u);
}

TEST_F(Permissions, PasswordsAreShownToRootAlone) {
  std::string stored = "STORED" + std::string(118, 'x');
  ASSERT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "carol", stored)), 0u);
  EXPECT_NE(running_text().find("username carol password 7 " + stored + "\n"), std::string::npos);
  std::string shown = text_as(kAlice);
  EXPECT_NE(shown.find("username carol password 7 <removed>\n"), std::string::npos) << shown;
  EXPECT_EQ(shown.find(stored), std::string::npos);
  // Nor through the credential requests: a user reaches her own credential alone, and lists it alone.
  for (const Bytes &request : {credential_request(SCH_CREDENTIAL_FETCH, "carol"),
                               credential_request(SCH_CREDENTIAL_STORE, "carol", "7$x"),
                               credential_request(SCH_CREDENTIAL_DELETE, "carol")}) {
    EXPECT_EQ(as(kAlice, request), SCH_STATUS_PERMISSION);
  }
  EXPECT_EQ(as(kAlice, credential_request(SCH_CREDENTIAL_STORE, "alice", "7$mine")), 0u);
  Bytes own = ask(kAlice, SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, credential_request(SCH_CREDENTIAL_FETCH, "alice")).payload;
  ASSERT_EQ(own.size(), 256u);
  EXPECT_STREQ(reinterpret_cast<const char *>(own.data()) + 128, "7$mine");
  const Bytes list = header_request(SCH_REQ_GET_USER_CONFIG);
  EXPECT_EQ(decode_credentials(ask(kAlice, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, list).payload),
            Names{"alice=7$mine"});
  EXPECT_EQ(decode_credentials(ask(kRoot, SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, list).payload),
            (Names{"carol=" + stored, "alice=7$mine"}));
}

TEST_F(Permissions, TheDaemonDecryptsOnlyTheCallersOwnCredential) {
  schedd::Reply made = secret(kAlice, SECRETS_OP_ENCRYPT, "wonderland");
  ASSERT_EQ(made.status, 0u) << syserr2str(made.status);
  std::string text(made.payload.begin(), made.payload.end());
  ASSERT_EQ(text.size(), SECRETS_TYPE7_MAX_TEXT);
  // Alice may check what she just had made; bob may not read it.
  schedd::Reply read = secret(kAlice, SECRETS_OP_DECRYPT, text);
  EXPECT_EQ(std::string(read.payload.begin(), read.payload.end()), "wonderland");
  EXPECT_EQ(secret(kBob, SECRETS_OP_DECRYPT, text).status, SCH_STATUS_NOT_PERMITTED);
  EXPECT_TRUE(secret(kBob, SECRETS_OP_DECRYPT, text).payload.empty());

  // A stored credential is readable by its user and root: bob's, made by root, is his to read.
  schedd::Reply roots = secret(kRoot, SECRETS_OP_ENCRYPT, "bobs-secret");
  std::string bobs(roots.payload.begin(), roots.payload.end());
  EXPECT_EQ(secret(kBob, SECRETS_OP_DECRYPT, bobs).status, SCH_STATUS_NOT_PERMITTED);
  ASSERT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "bob", bobs)), 0u);
  read = secret(kBob, SECRETS_OP_DECRYPT, bobs);
  EXPECT_EQ(std::string(read.payload.begin(), read.payload.end()), "bobs-secret");
  EXPECT_EQ(secret(kAlice, SECRETS_OP_DECRYPT, bobs).status, SCH_STATUS_NOT_PERMITTED);
  read = secret(kRoot, SECRETS_OP_DECRYPT, text);
  EXPECT_EQ(std::string(read.payload.begin(), read.payload.end()), "wonderland");
}

TEST_F(Permissions, TextTheConfigurationCannotCarryBackIsRefusedFromAnyone) {
  for (const schedd::Caller &caller : {kRoot, kAlice}) {
    const std::string schedule = caller.privileged() ? "rsched" : "asched";
    const std::string job = caller.privileged() ? "rjob" : "ajob";
    for (std::string address : {"a@b.c\nno feature scheduler", "x y@z", "a@b.c ", "\"q\"@b.c", "a@b@c", "a@b.c\t"}) {
      EXPECT_EQ(as(caller, email_request(SCH_EMAIL_ADD, schedule, address)), SCH_STATUS_BAD_ADDRESS) << address;
    }
    for (std::string text : {"echo x\nend-job\n", "echo x\n  end-job\t\n", "echo x", "a\rb\n", "a\x1b[2J\n",
                                    "ok\n\x7f\n"}) {
      EXPECT_EQ(as(caller, job_request(SCH_REQ_DEFINE_JOB, job, text)), SCH_STATUS_BAD_TEXT) << text;
    }
    // What looks alike but reads back the same is kept.
    EXPECT_EQ(as(caller, job_request(SCH_REQ_DEFINE_JOB, job, "echo end-job\nend-jobs\n\n  indented ; end-job\n")), 0u);
  }
  EXPECT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "bad user", "x")), SCH_STATUS_BAD_TEXT);
  EXPECT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "eve", "pass\nword")), SCH_STATUS_BAD_TEXT);
  sch_email_transport_conf conf{};
  std::strcpy(conf.reply_to, "ops@example.com\nfeature scheduler");
  EXPECT_EQ(configure(transport_request(SCH_REQ_EMAIL_REPLY_TO, conf)), SCH_STATUS_BAD_ADDRESS);
  std::string text = running_text();
  EXPECT_EQ(text.find("no feature"), std::string::npos) << text;
  EXPECT_EQ(text.find("\nend-job\nend-job"), std::string::npos) << text;
}

}  // namespace
}  // namespace in_process

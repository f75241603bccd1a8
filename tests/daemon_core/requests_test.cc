// The configuration and display requests one by one, as the daemon answers them: what each takes,
// what it refuses (and that a refusal changes nothing), what it leaves in the stores and what
// survives a restart. Tables of request, expected status and, where it tells, what a display shows.
#include <cstring>
#include <functional>
#include <optional>
#include <tuple>

#include "db/records.h"
#include "in_process.h"
#include "runner/log_file.h"
#include "schedcli/pss.h"
#include "schedcli/status.h"
#include "schedcli/wire.h"

namespace in_process {
namespace {

struct Step {
  Bytes request;
  uint32_t status;
  std::string why;
  std::optional<std::string> shows = std::nullopt;  // what the table's view shows afterwards, where given
};
// Names or texts with the status a request of each gets.
using Statuses = std::vector<std::pair<std::string, uint32_t>>;

std::string joined(const Names &names) {
  std::string text;
  for (const std::string &name : names) text += name + ",";
  return text;
}

sch_email_transport_conf server(const std::string &name, uint32_t kind, uint32_t port = 25, const std::string &vrf = "") {
  sch_email_transport_conf conf{};
  set_text(conf.smtp_server, name);
  conf.smtp_reserved = kind;
  conf.smtp_port = port;
  set_text(conf.vrf, vrf);
  return conf;
}

sch_email_transport_conf addresses(const std::string &from, const std::string &reply_to) {
  sch_email_transport_conf conf{};
  set_text(conf.from, from);
  set_text(conf.reply_to, reply_to);
  set_text(conf.reply_to_copy, reply_to);
  return conf;
}

class Requests : public InProcessDaemon {
 protected:
  void SetUp() override { ASSERT_TRUE(start()) << error_; }

  // Sends each request; checks its status and, where the step says, what `view` shows then.
  void expect_all(const std::vector<Step> &steps, const std::function<std::string()> &view = {}) {
    for (const Step &step : steps) {
      EXPECT_EQ(configure(step.request), step.status) << step.why;
      if (step.shows) {
        EXPECT_EQ(view(), *step.shows) << step.why;
      }
    }
  }
  schedd::Reply display(const Bytes &request) { return call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, request); }
  schedd::Reply simple(uint32_t type) { return call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(type)); }
  ScheduleEntry schedule(const std::string &name) {
    schedd::Reply reply = display(display_request(SCH_REQ_GET_SCHEDULES, name, -1));
    EXPECT_FALSE(reply.payload.empty()) << "no schedule " << name;
    return reply.payload.empty() ? ScheduleEntry{} : decode_schedule(reply.payload);
  }
  // A schedule as "time type|jobs|addresses|any address".
  std::string outline(const std::string &name) {
    ScheduleEntry entry = schedule(name);
    return std::to_string(entry.head.time.type) + "|" + joined(entry.job_names()) + "|" + joined(entry.addresses()) +
           "|" + std::to_string(entry.head.any_email);
  }
  std::string job_text(const std::string &name) {
    schedd::Reply reply = display(display_request(SCH_REQ_GET_JOBS, name, -1));
    EXPECT_FALSE(reply.payload.empty()) << "no job " << name;
    return reply.payload.empty() ? "" : decode_job(reply.payload).text;
  }
  // "type.sequence" of every record of the running stores named `name`.
  Names stored_keys(pss2_handle store, const std::string &name) {
    Names keys;
    for (const auto &[key, value] : image_of(store)) {
      const auto *bytes = reinterpret_cast<const uint8_t *>(key.data());
      if (std::string(key.c_str() + 8, strnlen(key.c_str() + 8, 32)) != name) continue;
      keys.push_back(std::to_string(sch_wire_get_u32(bytes)) + "." + std::to_string(sch_wire_get_u32(bytes + 4)));
    }
    return keys;
  }
  // The transport as the display shows it: "from|reply-to|copy|server|kind|port|vrf".
  std::string transport() {
    schedd::Reply reply = simple(SCH_REQ_GET_EMAIL_TRANSPORT);
    EXPECT_EQ(reply.payload.size(), 712u);
    sch_email_transport_conf c{};
    sch_wire_decode(SCH_WIRE_TRANSPORT_CONF, reply.payload.data(), reply.payload.size(), &c);
    return std::string(c.from) + "|" + c.reply_to + "|" + c.reply_to_copy + "|" + c.smtp_server + "|" +
           std::to_string(c.smtp_reserved) + "|" + std::to_string(c.smtp_port) + "|" + c.vrf;
  }
  Names credentials() { return decode_credentials(simple(SCH_REQ_GET_USER_CONFIG).payload); }
  uint32_t logging_level(uint8_t level, const std::string &facility = "scheduler") {
    return call(ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL, named(level, facility)).status;
  }
  std::string state_file(const std::string &name) const { return options().state_dir + "/" + name; }
};

TEST_F(Requests, JobNamesTextAndDeletion) {
  // The longest name the field holds; one name the rule refuses (its forms: cli's NameCheck).
  const std::string longest(31, 'n');
  const uint32_t bad = SCH_STATUS_BAD_REQUEST, bad_text = SCH_STATUS_BAD_TEXT;
  for (const auto &[name, status] :
       Statuses{{"backup", 0}, {"backup", SCH_STATUS_EXISTS}, {longest, 0}, {"", bad}, {"a.b", bad}, {"j", 0}}) {
    EXPECT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, name)), status) << name;
  }
  EXPECT_EQ(running_text(), "feature scheduler\n\nscheduler job name backup\nend-job\n\nscheduler job name " + longest +
                                "\nend-job\n\nscheduler job name j\nend-job\n\n");

  // Replaced whole, by texts that only look like an end and across fragment boundaries, down to nothing.
  std::vector<std::string> texts{"a\tb\n", "end-jobs\n\n", "echo end-job\n", "\n", "echo ?\n"};
  for (size_t length : {1024u, 1025u, 2049u, 8182u, 3u, 0u}) {
    std::string &text = texts.emplace_back(length, 'a');
    for (size_t i = 0; i < length; i += 7) text[i] = static_cast<char>('0' + i % 10);
    if (length > 0) text.back() = '\n';
  }
  for (const std::string &text : texts) {
    ASSERT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "j", text)), 0u) << text.size();
    EXPECT_EQ(job_text("j"), text) << text.size();
  }
  // Text the shell could not have gathered would not survive the configuration text pasted back:
  // unended lines, an end, help asked, a control byte on a later line.
  for (const auto &[text, status] :
       Statuses{{std::string(8182, 'a') + "\n", SCH_STATUS_TEXT_TOO_LONG}, {std::string("a\0b", 3), bad},
                {"echo done", bad_text}, {"a\nb", bad_text}, {"a\r\n", bad_text}, {"end-job\n", bad_text},
                {"a\n  end-job\t\nb\n", bad_text}, {" ?\n", bad_text}, {"ok\n\x7f\n", bad_text}}) {
    EXPECT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "j", text)), status) << text;
  }
  EXPECT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "nope", "x\n")), SCH_STATUS_NO_SUCH_JOB);
  EXPECT_EQ(job_text("j"), "") << "refused texts change nothing";
  // A shorter text leaves no stale fragment records.
  ASSERT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "j", std::string(2999, 'x') + "\n")), 0u);
  ASSERT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, "j", "short\n")), 0u);
  EXPECT_EQ(stored_keys(pss_running, "j"), (Names{"1.0", "1.1"}));
  restart();
  EXPECT_EQ(job_text("j"), "short\n");

  // Deletion takes the job off every schedule and its results off the store.
  for (std::string name : {"s1", "s2"}) {
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, name)), 0u);
    ASSERT_EQ(configure(assign_request(name, "j")), 0u);
    ASSERT_EQ(configure(assign_request(name, "backup")), 0u);
  }
  sch_runtime_job_status result{"s1", 2, {3u << 8, 0}};  // j (id 2) ran for s1 and exited with 3
  ASSERT_EQ(sch_save_runtime_job_status_entry_to_pss(pss_running_db, &result), 0);
  restart();
  EXPECT_EQ(schedule("s1").jobs.at(1).status, 3u << 8);
  EXPECT_EQ(schedule("s2").jobs.at(1).status, 0u) << "ran for s1 only";
  ASSERT_EQ(configure(job_request(SCH_REQ_DELETE_JOB, "j")), 0u);
  ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "newcomer")), 0u) << "takes the freed id, no old result";
  EXPECT_TRUE(stored_keys(pss_running, "j").empty());
  EXPECT_TRUE(stored_keys(pss_running_db, "s1").empty());
  restart();
  for (std::string name : {"s1", "s2"}) EXPECT_EQ(schedule(name).job_names(), Names{"backup"}) << name;
}

TEST_F(Requests, ScheduleTimesJobsAndAddresses) {
  ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), 0u);
  EXPECT_EQ(std::string(schedule("s1").head.user), "root") << "the requesting user's";
  EXPECT_EQ(outline("s1"), "0|||0");

  tminfo weekly{SCH_TM_WEEKLY, 9, 2, 0, 5, 0, 0, 0, 0, 0};
  ASSERT_EQ(configure(modify_request("s1", SCH_MODIFY_WEEKLY, weekly)), 0u);
  tminfo stored = schedule("s1").head.time;
  EXPECT_EQ(std::memcmp(&stored, &weekly, sizeof weekly), 0) << "stored as sent";
  tminfo repeat{SCH_TM_REPEAT, 0, 0, 0, 1, 0, 0, 1'800'000'120, 0, 0};
  tminfo no_interval = repeat;
  no_interval.minute = 0;
  tminfo longest = repeat;  // the most the shell types: 99:99:99
  longest.day_of_week = longest.hour = longest.minute = 99;
  tminfo hours_untypable = longest;
  hours_untypable.hour = 100;
  const std::string repeating = std::to_string(SCH_TM_REPEAT) + "|";
  for (std::string job : {"a", "b", "c"}) ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, job)), 0u);
  expect_all({{schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1"), SCH_STATUS_EXISTS, "taken"},
              {schedule_request(SCH_REQ_CREATE_SCHEDULE, "bad/name"), SCH_STATUS_BAD_REQUEST, "bad name"},
              {modify_request("s1", SCH_MODIFY_START_REPEAT, repeat), 0, "repeat"},
              {modify_request("s1", SCH_MODIFY_START_REPEAT, no_interval), SCH_STATUS_OUT_OF_RANGE, "no interval"},
              {modify_request("s1", SCH_MODIFY_START_REPEAT, hours_untypable), SCH_STATUS_OUT_OF_RANGE, "100 hours"},
              {modify_request("s1", SCH_MODIFY_START_REPEAT, longest), 0, "99:99:99"},
              {modify_request("s1", SCH_MODIFY_START_REPEAT, repeat), 0, "repeat again"},
              {modify_request("s1", SCH_MODIFY_DAILY, daily(24, 0)), SCH_STATUS_OUT_OF_RANGE, "hour 24"},
              {modify_request("s1", SCH_MODIFY_WEEKLY, daily(1, 0)), SCH_STATUS_BAD_REQUEST, "kind differs from code"},
              {modify_request("s1", 2, daily(1, 0)), SCH_STATUS_BAD_REQUEST, "no such sub-command"},
              {modify_request("s1", SCH_MODIFY_DAILY, daily(1, 0), "", true), SCH_STATUS_BAD_REQUEST, "no 'no' form"},
              {modify_request("nope", SCH_MODIFY_DAILY, daily(1, 0)), SCH_STATUS_NO_SUCH_SCHEDULE, "no schedule",
               repeating + "||0"},
              {assign_request("s1", "c"), 0, "c"},
              {assign_request("s1", "a"), 0, "a"},
              {assign_request("s1", "a"), 0, "a again"},
              {assign_request("s1", "b"), 0, "b"},
              {assign_request("s1", "nope"), SCH_STATUS_NO_SUCH_JOB, "no job"},
              {assign_request("nope", "a"), SCH_STATUS_NO_SUCH_SCHEDULE, "no schedule to assign to",
               repeating + "a,b,c,||0"},  // once each, in job id order
              {assign_request("s1", "b", true), 0, "no b", repeating + "a,c,||0"},
              {assign_request("s1", "b", true), 0, "not assigned: nothing to do", repeating + "a,c,||0"},
              {modify_request("s1", SCH_MODIFY_JOB_NO_NAME, tminfo{}), 0, "the positive form names no job",
               repeating + "a,c,||0"},
              {modify_request("s1", SCH_MODIFY_JOB_NO_NAME, tminfo{}, "", true), 0, "no job at all", repeating + "||0"},
              // Addresses are removed by exact name, are one word of the text, and go with their schedule.
              {schedule_request(SCH_REQ_CREATE_SCHEDULE, "s10"), 0, "s10"},
              {email_request(SCH_EMAIL_ADD, "s10", "a@b.com"), 0, "s10's", repeating + "||0"},
              {email_request(SCH_EMAIL_ADD, "s1", "a@b.c"), 0, "a@b.c"},
              {email_request(SCH_EMAIL_ADD, "s1", "a@b.com"), 0, "a@b.com"},
              {email_request(SCH_EMAIL_DELETE, "s1", "a@b.c"), 0, "delete a@b.c", repeating + "|,a@b.com,|1"},
              {email_request(SCH_EMAIL_DELETE, "s1", "a@b"), 0, "not an address of s1: nothing to do",
               repeating + "|,a@b.com,|1"},
              {email_request(SCH_EMAIL_DELETE, "s1", "a@b.com"), 0, "the last", repeating + "||0"},
              {email_request(SCH_EMAIL_ADD, "nope", "x@y"), SCH_STATUS_NO_SUCH_SCHEDULE, "no schedule"},
              {email_request(22, "s1", "x@y"), SCH_STATUS_BAD_REQUEST, "no such operation"},
              {email_request(SCH_EMAIL_ADD, "s1", ""), SCH_STATUS_BAD_REQUEST, "empty"},
              {email_request(SCH_EMAIL_ADD, "s1", "z /etc"), SCH_STATUS_BAD_ADDRESS, "a space"},
              // The other address forms are the mail address test's, which has no DEL.
              {email_request(SCH_EMAIL_ADD, "s1", "\x7f@b"), SCH_STATUS_BAD_ADDRESS, "DEL", repeating + "||0"},
              {email_request(SCH_EMAIL_ADD, "s1", "ops@example.com"), 0, "ops"},
              {schedule_request(SCH_REQ_DELETE_SCHEDULE, "s1"), 0, "delete s1"},
              {schedule_request(SCH_REQ_DELETE_SCHEDULE, "s1"), SCH_STATUS_NO_SUCH_SCHEDULE, "gone"}},
             [&] { return outline("s1"); });
  restart();
  EXPECT_EQ(schedule("s10").addresses(), Names{"a@b.com"});
  ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, "s1")), 0u);
  EXPECT_TRUE(schedule("s1").addresses().empty()) << "the old schedule's addresses went with it";
}

TEST_F(Requests, TransportPartsSetClearedAndRefused) {
  EXPECT_EQ(transport(), "||||1|25|management");
  expect_all({{transport_request(SCH_REQ_EMAIL_FROM, addresses("sched@example.com", "")), 0, "from"},
              {transport_request(SCH_REQ_EMAIL_REPLY_TO, addresses("", "ops@example.com")), 0, "reply-to"},
              {transport_request(SCH_REQ_EMAIL_SMTP, server("2001:db8::25", 2, 587, "default")), 0, "server"}});
  restart();
  EXPECT_EQ(transport(), "sched@example.com|ops@example.com|ops@example.com|2001:db8::25|2|587|default");
  // Each no form clears its own part only.
  const std::string server_alone = "|||2001:db8::25|2|587|default";
  expect_all({{transport_request(SCH_REQ_NO_EMAIL_REPLY_TO, {}), 0, "no reply-to", "sched@example.com" + server_alone},
              {transport_request(SCH_REQ_NO_EMAIL_FROM, {}), 0, "no from", server_alone},
              {transport_request(SCH_REQ_NO_EMAIL_SMTP, server("", 0)), 0, "no server"}},
             [&] { return transport(); });
  restart();
  EXPECT_EQ(transport(), "||||1|25|management");

  // A server without a vrf uses the default one; names the shell would not read back are refused.
  ASSERT_EQ(configure(transport_request(SCH_REQ_EMAIL_SMTP, server("mail.example.com", 16, 25, "blue"))), 0u);
  ASSERT_EQ(configure(transport_request(SCH_REQ_EMAIL_SMTP, server("mail.example.com", 16))), 0u);
  for (const sch_email_transport_conf &bad :
       {server("mail.example.com", 1), server("192.0.2.1", 2), server("192.0.2.1", 3), server("", 16),
        server("two words", 16), server("mail", 16, 25, "a vrf"), server(std::string(256, 'm'), 16),
        server("mail.example.com:", 16), server("mail..example.com", 16), server("-mail.example.com", 16),
        server("192.0.2.300", 16), server(std::string(64, 'm') + ".com", 16)}) {
    EXPECT_EQ(configure(transport_request(SCH_REQ_EMAIL_SMTP, bad)), SCH_STATUS_BAD_REQUEST) << bad.smtp_server;
  }
  expect_all({{transport_request(SCH_REQ_EMAIL_SMTP, server("192.0.2.1", 1, 0)), SCH_STATUS_OUT_OF_RANGE, "port 0"},
              {transport_request(SCH_REQ_EMAIL_SMTP, server("192.0.2.1", 1, 65536)), SCH_STATUS_OUT_OF_RANGE, "port"},
              {transport_request(SCH_REQ_EMAIL_FROM, addresses("", "")), SCH_STATUS_BAD_ADDRESS, "no sender"},
              {transport_request(SCH_REQ_EMAIL_FROM, addresses("a@b.c\nscheduler job name x", "")),
               SCH_STATUS_BAD_ADDRESS, "two lines"},
              {transport_request(SCH_REQ_EMAIL_REPLY_TO, addresses("", "a@b.c\nfeature scheduler")),
               SCH_STATUS_BAD_ADDRESS, "reply-to of two lines"},
              {transport_request(SCH_REQ_EMAIL_REPLY_TO, addresses("", std::string(64, 'r'))), SCH_STATUS_BAD_ADDRESS,
               "fills the field"}});
  EXPECT_EQ(transport(), "|||mail.example.com|16|25|management") << "nothing refused was applied";
}

TEST_F(Requests, CredentialsStoredReplacedFetchedDeleted) {
  // The password the runner fetches, then the list the display shows.
  auto stored = [&] { return password_of("root", kRoot) + "|" + joined(credentials()); };
  EXPECT_EQ(stored(), "|") << "none stored yet";
  expect_all({{credential_request(SCH_CREDENTIAL_STORE, "root", "7$first"), 0, "first", "7$first|root=7$first,"},
              {credential_request(SCH_CREDENTIAL_STORE, "root", "7$second"), 0, "replaced", "7$second|root=7$second,"},
              {credential_request(SCH_CREDENTIAL_STORE, "root", ""), SCH_STATUS_NO_CREDENTIAL, "no password"},
              {credential_request(SCH_CREDENTIAL_STORE, "", "7$x"), SCH_STATUS_NO_CREDENTIAL, "no user"},
              {credential_request(2, "root"), SCH_STATUS_BAD_REQUEST, "no such operation"},
              {credential_request(SCH_CREDENTIAL_STORE, "bad user", "x"), SCH_STATUS_BAD_TEXT, "two words"},
              {credential_request(SCH_CREDENTIAL_STORE, "root", "pass\nword"), SCH_STATUS_BAD_TEXT, "two lines"},
              {credential_request(SCH_CREDENTIAL_STORE, "root", std::string(128, 'p')), SCH_STATUS_BAD_REQUEST, "long",
               "7$second|root=7$second,"},
              {credential_request(SCH_CREDENTIAL_DELETE, "root"), 0, "delete", "|"},
              {credential_request(SCH_CREDENTIAL_DELETE, "root"), 0, "nothing stored: nothing to do", "|"}},
             stored);
  restart();
  EXPECT_EQ(stored(), "|");
}

TEST_F(Requests, FeatureStatesAndEverythingRefusedWhileOff) {
  restart();
  ASSERT_EQ(feature(FM_FEATURE_DISABLE), 0u);
  EXPECT_EQ(feature(FM_FEATURE_DISABLE), FM_ERR_ALREADY_DISABLED);
  EXPECT_EQ(call(FM_SERVICE, FM_FEATURE_DISABLE, named(FM_FEATURE_ENABLE, "scheduler")).status, SCH_STATUS_BAD_REQUEST)
      << "action and opcode differ";
  EXPECT_EQ(call(FM_SERVICE, FM_FEATURE_ENABLE, Bytes{FM_FEATURE_ENABLE}).status, SCH_STATUS_BAD_REQUEST);
  EXPECT_EQ(call(FM_SERVICE, FM_FEATURE_ENABLE, named(FM_FEATURE_ENABLE, "bgp")).status, SCH_STATUS_NO_SUCH_FEATURE);
  // One gate before every request type (the shell's commands meet it in the feature_off transcript);
  // a credential fetch, which a standby still answers, meets it too.
  EXPECT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, "j")), SCH_STATUS_FEATURE_DISABLED);
  EXPECT_EQ(configure(credential_request(SCH_CREDENTIAL_FETCH, "root")), SCH_STATUS_FEATURE_DISABLED);
  EXPECT_EQ(simple(SCH_REQ_GET_USER_CONFIG).status, SCH_STATUS_FEATURE_DISABLED);
  EXPECT_EQ(logging_level(3), SCH_STATUS_FEATURE_DISABLED);
  EXPECT_EQ(configure(header_request(SCH_REQ_CREATE_JOB)), SCH_STATUS_BAD_REQUEST) << "malformed is still malformed";
  EXPECT_EQ(running_text(), "") << "the scheduler adds nothing to the configuration while off";
  restart();
  EXPECT_EQ(feature(FM_FEATURE_ENABLE), 0u) << "off kept across a restart";
  EXPECT_EQ(feature(FM_FEATURE_ENABLE), FM_ERR_ALREADY_ENABLED);
  restart(true);
  EXPECT_EQ(feature(FM_FEATURE_ENABLE), SCH_STATUS_STANDBY);
}

TEST_F(Requests, DisableLeavesNothingOfTheConfigurationInMemoryOrTheStores) {
  configure_everything();
  ASSERT_EQ(configure(log_file_request(SCH_REQ_LOG_NAME, false, "moved.dat")), 0u);
  ASSERT_EQ(logging_level(2), 0u);
  sch_runtime_job_status result{"alpha", 0, {}};
  ASSERT_EQ(sch_save_runtime_job_status_entry_to_pss(pss_running_db, &result), 0);
  ASSERT_TRUE(std::filesystem::exists(state_file("moved.dat")));
  EXPECT_GT(mtrack_live_blocks(SCH_MTRACK_IDENTITY), 0u);
  ASSERT_FALSE(image_of(debug_pss_running).empty()) << "the logging level is stored";

  ASSERT_EQ(feature(FM_FEATURE_DISABLE), 0u);
  EXPECT_EQ(mtrack_live_blocks(SCH_MTRACK_IDENTITY), 0u) << "every block of the database released";
  EXPECT_FALSE(std::filesystem::exists(state_file("moved.dat"))) << "the run log goes with the configuration";
  EXPECT_EQ(std::filesystem::file_size(state_file("scheduler_circular_log.dat")), 0u);
  EXPECT_EQ(image_of(pss_running).size(), 1u) << "the condition record alone";
  EXPECT_TRUE(image_of(pss_running_db).empty());
  EXPECT_TRUE(image_of(debug_pss_running).empty());
  // Turned on again at once, memory has nothing left: the text lists every job, schedule, credential
  // and setting that is not the default. (The stores, empty above, are what a restart would read.)
  ASSERT_EQ(feature(FM_FEATURE_ENABLE), 0u);
  EXPECT_EQ(running_text(), "feature scheduler\n\n");
}

// A store (damaged, or from elsewhere) whose log-file record names a place outside the daemon's
// directories, or no file at all: the daemon starts on the default name and makes nothing there.
TEST_F(Requests, AStoredLogFileNameOutsideTheDirectoriesIsNotUsed) {
  const std::string outside = directory_->file("outside");
  ASSERT_TRUE(std::filesystem::create_directory(outside));
  for (const std::string &stored : {outside + "/taken.dat", outside + "/missing/taken.dat", std::string("/"),
                                     std::string("s/..")}) {
    sch_log_file_record record = sch_log_file;
    ASSERT_TRUE(schedd::store_log_path(&record, stored));
    ASSERT_EQ(sch_save_log_file_entry_to_pss(pss_running, &sch_log_file_key, &record), 0);
    restart();
    EXPECT_EQ(schedd::stored_log_path(sch_log_file), schedd::kDefaultLogFileName) << stored;
    EXPECT_TRUE(std::filesystem::is_empty(outside)) << stored;
    EXPECT_EQ(running_text().find("logfile name"), std::string::npos) << stored;
  }
  // One inside them is kept, even where its directory has gone.
  ASSERT_EQ(configure(log_file_request(SCH_REQ_LOG_NAME, false, "moved.dat")), 0u);
  restart();
  EXPECT_EQ(schedd::stored_log_path(sch_log_file), "moved.dat");
  sch_log_file_record record = sch_log_file;
  ASSERT_TRUE(schedd::store_log_path(&record, "gone/moved.dat"));
  ASSERT_EQ(sch_save_log_file_entry_to_pss(pss_running, &sch_log_file_key, &record), 0);
  restart();
  EXPECT_EQ(schedd::stored_log_path(sch_log_file), "gone/moved.dat");
}

TEST_F(Requests, LoggingLevelStartupTextAndRequestsThatDoNotHoldUp) {
  ASSERT_NO_FATAL_FAILURE(configure_everything());
  const std::string base = running_text();
  // The default level has no line.
  for (const auto &[level, restarted, line] : std::vector<std::tuple<uint8_t, bool, std::string>>{
           {3, false, "logging level scheduler 3\n"}, {5, false, ""}, {0, true, "logging level scheduler 0\n"},
           {ACFG_LEVEL_DEFAULT, false, ""}}) {
    ASSERT_EQ(logging_level(level), 0u);
    if (restarted) restart();
    EXPECT_EQ(running_text(), "feature scheduler\n" + line + base.substr(18)) << int{level};
  }
  // The log's size is taken in whole kilobytes from 1 to 65536, as the text shows it.
  for (uint32_t size : {1023u, 16u * 1024 + 1, 64u * 1024 * 1024 + 1024}) {
    EXPECT_EQ(configure(log_file_request(SCH_REQ_LOG_SIZE, false, "", size)), SCH_STATUS_OUT_OF_RANGE) << size;
  }
  EXPECT_EQ(running_text(), base);
  EXPECT_EQ(configure(log_file_request(SCH_REQ_LOG_SIZE, false, "", 64u * 1024 * 1024)), 0u);
  EXPECT_NE(running_text().find("scheduler logfile size 65536\n"), std::string::npos);
  ASSERT_EQ(configure(log_file_request(SCH_REQ_LOG_SIZE, false, "", 4096)), 0u);
  EXPECT_EQ(logging_level(3, "bgp"), SCH_STATUS_NO_SUCH_FACILITY);
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_LOGGING_LEVEL, Bytes{3, 's', 'c', 'h'}).status, SCH_STATUS_BAD_REQUEST);
  EXPECT_EQ(logging_level(8), SCH_STATUS_BAD_REQUEST);
  EXPECT_EQ(call(ACFG_SERVICE, 99, Bytes{0}).status, SCH_STATUS_UNKNOWN_REQUEST);
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_COPY_STARTUP, Bytes{}).status, SCH_STATUS_BAD_REQUEST);
  EXPECT_EQ(call(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, Bytes{3, 0}).status, SCH_STATUS_BAD_REQUEST);

  // Showing the startup configuration brings the log file, transport and email records of the
  // startup store into the live configuration (intended); a job created since stays.
  ASSERT_EQ(copy_to_startup(), 0u);
  const std::string startup = startup_text();
  expect_all({{email_request(SCH_EMAIL_DELETE, "alpha", "ops@example.com"), 0, "address"},
              {email_request(SCH_EMAIL_DELETE, "zeta", "ops@example.com"), 0, "address"},
              {log_file_request(SCH_REQ_LOG_SIZE, true), 0, "size"},
              {transport_request(SCH_REQ_NO_EMAIL_FROM, {}), 0, "from"},
              {job_request(SCH_REQ_CREATE_JOB, "later"), 0, "later"}});
  ASSERT_NE(running_text(), startup);
  EXPECT_EQ(startup_text(), startup);
  std::string running = running_text();
  for (const char *line : {"scheduler logfile size 4\n", "scheduler transport email from scheduler@example.com\n",
                           "email-addr ops@example.com\n", "scheduler job name later\n"}) {
    EXPECT_NE(running.find(line), std::string::npos) << line << running;
  }
  // A startup configuration with the feature off has no text either.
  ASSERT_EQ(feature(FM_FEATURE_DISABLE), 0u);
  ASSERT_EQ(copy_to_startup(), 0u);
  EXPECT_EQ(startup_text(), "");
  restart(true);
  EXPECT_EQ(copy_to_startup(), SCH_STATUS_STANDBY);
  EXPECT_EQ(logging_level(3), SCH_STATUS_STANDBY);
}

}  // namespace
}  // namespace in_process

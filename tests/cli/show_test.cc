// The show commands: the requests of each walk, how each reply prints, and how a failed or broken
// reply is reported. Never-run schedules and the configuration's common lines are in transcripts.
#include "schedcli/cli_config.h"
#include "support/fake_daemon.h"
#include "support/traces.h"

namespace {

using namespace sch::testing;
using Show = HandlerTest;

const std::string kRule = std::string(78, '=') + "\n", kDashes = std::string(47, '-') + "\n";
const std::string kHeading = kDashes + "     Job Name            Last Execution Status\n" + kDashes;
constexpr int32_t kJune15th2030 = 1907749800;  // 10:30 UTC

// A schedule reply with its job entries (name and status); `declared` overrides the job count.
Bytes schedule_reply(const char *name, tminfo time, std::vector<std::pair<std::string, uint32_t>> jobs = {},
                     int32_t last_execution = 0, int32_t last_completion = 0, int declared = -1,
                     std::vector<std::pair<const char *, uint32_t>> emails = {}) {
  sch_schedule_reply head{.cursor = 0x10, .time = time, .last_completion = last_completion};
  std::snprintf(head.name, sizeof head.name, "%s", name);
  std::snprintf(head.user, sizeof head.user, "%s", kLocalUser);
  head.job_count = declared >= 0 ? uint32_t(declared) : uint32_t(jobs.size());
  head.last_execution = last_execution;
  head.execution_count = last_execution ? 3 : 0;
  head.any_email = !emails.empty();
  for (size_t i = 0; i < emails.size(); i++) {
    std::snprintf(head.emails[i].address, SCH_EMAIL_SIZE, "%s", emails[i].first);
    head.emails[i].in_use = emails[i].second;
  }
  Bytes bytes(sizeof head);
  sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY, &head, bytes.data());
  for (const auto &[job, status] : jobs) {
    Bytes entry = image(36, {{32, status}}, {{0, job}});
    bytes.insert(bytes.end(), entry.begin(), entry.end());
  }
  return bytes;
}

std::string column(const std::string &name) { return name + std::string(32 - name.size(), ' '); }

TEST_F(Show, SchedulesThatHaveRun) {
  answer(0, schedule_reply("w", {.type = 4, .hour = 23, .day_of_week = 7, .minute = 59},
                           {{"backup", 0x0100}, {"cleanup", 0x0009}, {"c", 0xff00}}, 1700000000, 1700003600));
  answer(0, schedule_reply("m", {.type = 5, .hour = 10, .day_of_month = 28}, {}, 1700000000));
  EXPECT_EQ(run(sch_cli_show_schedules), 0);
  const std::string head = std::string(23, '-') + "\nUser Name           : alice\nSchedule Type       : ";
  const std::string ran = "Last Execution Time : Tue Nov 14 22:13:20 2023\n";
  EXPECT_EQ(output_.out,
            "Schedule Name       : w\n" + head + "Run on every Saturday at 23 Hrs 59 Mins\n" + ran +
                "Last Completion Time: Tue Nov 14 23:13:20 2023\nExecution count     : 3\n" + kHeading +
                column("backup") + "  Failed  (1)\n" + column("cleanup") + "  Success (0)\n" + column("c") +
                "  Failed  (255)\n" + kRule +  // 0x0009: a signal reads as success, intended
                "Schedule Name       : m\n" + head + "Run on every 28 of every month at 10 Hrs 0 Mins\n" + ran +
                "Execution count     : 3\n" + kHeading + "              No jobs assigned to schedule\n" +
                kRule);  // fourteen blanks
  EXPECT_EQ(sent(1), image(48, {{0, 6}, {4, 40}, {44, 0x10}}));

  // A failure or a broken reply ends the walk; what was shown stays.
  answer(0, schedule_reply("a", {.type = 3}));
  answer(CMI_ERR_DAEMON_CLOSED);
  EXPECT_EQ(run(sch_cli_show_schedules), 1);
  EXPECT_NE(output_.out.find("Schedule Name       : a\n"), std::string::npos);
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_DAEMON_CLOSED));
  for (const Bytes &broken : {Bytes(819, 0), schedule_reply("a", {.type = 3}, {{"backup", 0}}, 0, 0, 2)}) {
    answer(0, broken);
    EXPECT_EQ(run(sch_cli_show_schedules), 1);
    EXPECT_EQ(output_.out + output_.err, error_line("Error", CMI_ERR_LENGTH));
  }
}

// One log message: the header of an entry and a part of its output.
Bytes log_message(int32_t count, int32_t number, int32_t total, const std::string &part) {
  Bytes bytes = image(128, {{0, uint32_t(count)}, {4, uint32_t(number)}, {116, 86400}, {120, uint32_t(total)},
                            {124, uint32_t(part.size())}},
                      {{8, "backup"}, {40, "nightly"}, {72, "alice"}});
  bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

std::string log_entry(const std::string &output) {
  return "Job Name       : " + column("backup") + "  Job Status: Success (0)\nSchedule Name  : " + column("nightly") +
         "  User Name : alice\nCompletion time: Fri Jan  2 00:00:00 1970\n" + std::string(33, '-') + " Job Output " +
         std::string(33, '-') + "\n" + output + kRule;
}

TEST_F(Show, LogfileJoinsEachEntrysPartsAndRefusesBrokenOnes) {
  std::string long_output;
  for (int i = 0; i < 10000; i++) long_output.push_back(char('a' + i % 26));
  Bytes lying = log_message(2, 1, 6, "abc");
  sch_wire_put_u32(lying.data() + 124, 50);  // declares more than it carries
  const std::pair<std::vector<Bytes>, std::string> cases[] = {
      {{log_message(0, 0, 0, "")}, ""},  // an empty log prints nothing
      {{log_message(1, 1, 10000, long_output.substr(0, 4000)), log_message(1, 1, 10000, long_output.substr(4000, 4000)),
        log_message(1, 1, 10000, long_output.substr(8000))},
       log_entry(long_output)},
      // The stream ends early: a receive error, and the command still succeeds.
      {{log_message(2, 1, 3, "ok\n")}, log_entry("ok\n") + "Error on recv\n"},
      // An entry cut short inside is not printed; it was the last, so the listing ends too.
      {{log_message(1, 1, 10, "12345")}, "Error on recv\n"},
      // A part that overruns the total drops its entry; one beyond its message ends the listing.
      {{log_message(2, 1, 4, "ab"), log_message(2, 1, 6, "abc"), lying, log_message(2, 2, 2, "ok")},
       "Error cmi parsing\nError cmi parsing\n"},
      // A total no log file can hold is refused, and the next entry prints.
      {{log_message(2, 1, (65536 << 10) + 1, "ab"), log_message(2, 2, 3, "ok\n")},
       "Error cmi parsing\n" + log_entry("ok\n")},
  };
  for (const auto &[messages, out] : cases) {
    daemon_.stream(messages);
    EXPECT_EQ(run(sch_cli_show_logfile, {"nightly"}), 0);
    EXPECT_EQ(output_.out, out);
    EXPECT_EQ(output_.err, "");
  }
  EXPECT_EQ(sent(0), image(48, {{0, 8}, {4, 40}, {44, 0xffffffffu}}, {{12, "nightly"}}));

  cmi_session *nobody = cmi_session_open("/tmp/schedcli-no-such-dir/schedd.sock");
  Command command(nobody);
  EXPECT_EQ(uint32_t(run(sch_cli_show_logfile, command)), CMI_ERR_NO_DAEMON);
  cmi_session_close(nobody);
  EXPECT_EQ(output_.out, "");
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_NO_DAEMON));
}

Bytes users(std::vector<std::pair<std::string, std::string>> entries) {
  Bytes reply(2);
  sch_wire_put_u16(reply.data(), static_cast<uint16_t>(entries.size()));
  for (const auto &[user, password] : entries) {
    Bytes entry = image(264, {}, {{0, user}, {128, password}});
    reply.insert(reply.end(), entry.begin(), entry.end());
  }
  return reply;
}

Bytes job(const std::string &name, uint32_t cursor, const std::string &text, uint32_t extra_declared = 0) {
  Bytes reply = image(44, {{32, cursor}, {40, uint32_t(text.size()) + extra_declared}}, {{0, name}});
  reply.insert(reply.end(), text.begin(), text.end());
  return reply;
}

// The transcript "show_config" has each piece as a real daemon answers it; these are the pieces
// only a fake one gives: users, a name that fills its field, an unused address slot, and failures.
TEST_F(Show, ConfigurationPiecesInOrderEachReportingItsOwnFailure) {
  sch::testing::clear_traces();
  answer(0, Bytes(3, 0));
  answer(0, Bytes(711, 0));
  answer(0, users({{"rita", "ENC-RITA"}, {"remo", "ENC-REMO"}}));
  answer(0, job(std::string(32, 'j'), 7, ""));
  answer(0, job("a", 1, "0123456789", 1));  // declares more text than it carries
  answer(0, schedule_reply("nightly", {.type = 3, .hour = 2, .minute = 30}, {{"backup", 0}}, 0, 0, -1,
                           {{"a@example.com", 1}, {"unused@example.com", 0}, {"b@example.com", 1}}));
  answer(0, schedule_reply("s", {.type = 3}, {{"a", 0}}, 0, 0, 2));
  EXPECT_EQ(run(sch_cli_show_config), 0);
  EXPECT_EQ(output_.out,
            "end\n\n"
            "config terminal\nscheduler aaa-authentication username rita password 7 ENC-RITA\nend\n"
            "config terminal\nscheduler aaa-authentication username remo password 7 ENC-REMO\nend\n\n"
            "config terminal\n scheduler job name " + std::string(32, 'j') + "\nend\n\n"
            "config terminal\n  scheduler schedule name nightly\n    time daily 02:30\n    job name backup\n"
            "    email-addr a@example.com\n    email-addr b@example.com\nend\n\n");
  std::string short_reply = error_line("Error", CMI_ERR_LENGTH);
  EXPECT_EQ(output_.err, short_reply + short_reply + short_reply + short_reply);
  auto sent = requests();
  ASSERT_EQ(sent.size(), 7u);
  const uint32_t services[] = {59512, 59511, 59511, 59512, 59512, 59512, 59512};
  const uint32_t types[] = {12, 19, 23, 7, 7, 6, 6};
  for (size_t i = 0; i < 3; i++) EXPECT_EQ(sent[i].bytes, image(8, {{0, types[i]}}));
  for (size_t i = 0; i < sent.size(); i++) {
    EXPECT_EQ(sent[i].service * 10 + sent[i].opcode, services[i]) << i;
    EXPECT_EQ(sch_wire_get_u32(sent[i].bytes.data()), types[i]) << i;
  }
  EXPECT_EQ(sent[4].bytes, image(48, {{0, 7}, {4, 40}, {44, 7}}));  // the cursor echoed
  EXPECT_EQ(sent[5].bytes, image(48, {{0, 6}, {4, 40}, {44, ~0u}}));
  EXPECT_EQ(sent[6].bytes, image(48, {{0, 6}, {4, 40}, {44, 0x10}}));

  answer(CMI_ERR_TIMEOUT);
  EXPECT_EQ(run(get_log_file_config), 1);
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_TIMEOUT));
  Bytes users_cut = users({{"rita", "ENC"}, {"remo", "ENC"}});
  users_cut.pop_back();
  for (auto [status, reply] : {std::pair{CMI_ERR_DAEMON_CLOSED, Bytes{}}, {0u, users_cut}}) {
    answer(status, reply);
    EXPECT_EQ(run(get_user_config), status ? status : CMI_ERR_LENGTH);
    EXPECT_EQ(output_.out + output_.err, error_line("Error: ", status ? status : CMI_ERR_LENGTH));
  }
}

TEST(Printers, ScheduleKindsAndTimeLines) {
  setenv("TZ", "UTC", 1);
  tzset();
  // Suffixes and kinds the transcript "schedules" does not reach: weekdays out of range, unknown kinds.
  for (auto [day, text] : {std::pair{20, "20th"}, {24, "24th"}, {29, "29th"}}) {
    tminfo t{.type = 5, .hour = 10, .day_of_month = day};
    EXPECT_EQ(capture([&] { print_monthly_schedule(&t); }).out,
              std::string("Run on every ") + text + " of every month at 10 Hrs 0 Mins\n");
  }
  for (int day : {0, 8}) {
    tminfo t{.type = 4, .day_of_week = day};
    EXPECT_EQ(capture([&] { print_weekly_schedule(&t); }).out, "Run on every ** at 0 Hrs 0 Mins\n");
  }
  for (auto [type, text] : {std::pair{1, "Run once on Sat Jun 15 10:30:00 2030\n"}, {2, "None\n"}, {6, "None\n"},
                            {8, "None\n"}}) {
    tminfo t{.type = type, .hour = 10, .day_of_month = 15, .minute = 30, .month = 5, .year = 130};
    EXPECT_EQ(capture([&] { print_schedule_type(&t); }).out, std::string("Schedule Type       : ") + text);
  }

  const tminfo repeat{.type = 7, .start_time = kJune15th2030};
  auto with = [](tminfo t, int days, int hours, int minutes) {
    t.day_of_week = days, t.hour = hours, t.minute = minutes;
    return t;
  };
  const std::tuple<tminfo, const char *, const char *> lines[] = {  // printed; appended to "x"
      {{.type = 1, .hour = 9, .day_of_month = 5, .minute = 7, .year = 124}, "time start 2024:01:05:09:07\n", "xtime"},
      {{.type = 3, .hour = 2, .minute = 30}, "time daily 02:30\n", "xtime02:30\n"},
      {{.type = 3, .hour = -1, .minute = 5}, "time daily 05\n", "xtime05\n"},
      {{.type = 4, .hour = 9, .minute = 5}, "time weekly 09:05\n", "xtime09:05\n"},
      {{.type = 4, .hour = 9, .day_of_week = 7, .minute = 5}, "time weekly 07:09:05\n", "xtime07:09:05\n"},
      {{.type = 5, .hour = 10, .day_of_month = 28}, "time monthly 28:10:00\n", "xtime28:10:00\n"},
      {with(repeat, 0, 0, 30), "time start 2030:06:15:10:30 repeat 30\n", "xtime30\n"},
      {with(repeat, 0, 2, 5), "time start 2030:06:15:10:30 repeat 2:5\n", "xtime2:5\n"},
      {with(repeat, 1, 0, 3), "time start 2030:06:15:10:30 repeat 1:0:3\n", "xtime1:0:3\n"},
      {{.type = 6, .hour = 1}, "", "x"}};
  for (const auto &[time, printed, appended] : lines) {
    EXPECT_EQ(capture([&] { print_config_schedule_type(&time, nullptr); }).out, printed);
    char destination[32] = "x";
    print_config_schedule_type(&time, destination);
    EXPECT_STREQ(destination, appended);
  }
}

TEST(Printers, TimeErrorsForEveryCodeAndForm) {
  // The transcript "schedules" has the out-of-range lines of forms 1, 3, 4 and 5 and the past.
  const std::string format = "Incorrect time format. Should be ";
  const std::tuple<uint32_t, int, std::string> cases[] = {
      {0x40bd000b, 1, format + "yyyy:mmm:dd:HH:MM or +dd:HH:MM\n"},
      {0x40bd000c, 3, format + "HH:MM\n"},
      {0x40bd000b, 4, format + "dow:HH:MM\n"},
      {0x40bd000b, 5, format + "dm:HH:MM\n"},
      {0x40bd000c, 7, format + "dd:HH:MM\n"},
      {0x40bd000c, 2, "Incorrect time format. Error 1086128140. Format unknown\n"},
      {0x40bd000d, 7, "Value out of range\nShould be dd:HH:MM.\n    dd,HH,MM = {1..99}\n"},
      {0x40bd000d, 0, "Value out of range\nError 1086128141. Format unknown.\n"},
      {0x40bd000f, 3, "Error 1086128143.\n"},
  };
  for (const auto &[code, kind, text] : cases) {
    EXPECT_EQ(capture([&] { sch_cli_disp_error(code, kind); }).err, text) << code << " " << kind;
  }
}

}  // namespace

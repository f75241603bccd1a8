// show schedules: how each schedule is printed from the daemon's entries.
#include "cli_testing.h"

namespace {

using namespace cli_testing;

const std::string kRule = std::string(78, '=') + "\n", kDashes = std::string(47, '-') + "\n";
const std::string kHeading = kDashes + "     Job Name            Last Execution Status\n" + kDashes;

// A schedule reply with its job entries; `declared` overrides the job count.
Bytes schedule_reply(const char *name, tminfo time, std::vector<std::pair<std::string, uint32_t>> jobs = {},
                     int32_t last_execution = 0, int32_t last_completion = 0, int declared = -1) {
  sch_schedule_reply head{.cursor = 0x10, .time = time, .last_completion = last_completion};
  std::snprintf(head.name, sizeof head.name, "%s", name);
  std::snprintf(head.user, sizeof head.user, "%s", kLocalUser);
  head.job_count = declared >= 0 ? uint32_t(declared) : uint32_t(jobs.size());
  head.last_execution = last_execution;
  head.execution_count = last_execution ? 3 : 0;
  Bytes bytes(820);
  sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY, &head, bytes.data());
  for (const auto &[job, status] : jobs) {
    Bytes entry = image(36, {{32, status}}, {{0, job}});
    bytes.insert(bytes.end(), entry.begin(), entry.end());
  }
  return bytes;
}

std::string column(const std::string &name) { return name + std::string(32 - name.size(), ' '); }

using ShowSchedules = CliTest;

TEST_F(ShowSchedules, NeverRunAndRunSchedules) {
  answer(0, schedule_reply("nightly", {.type = 3, .hour = 2, .minute = 30}));
  answer(0, schedule_reply("s", {.type = 4, .hour = 9, .day_of_week = 2, .minute = 5}, {{"backup", 0x100}}));
  answer(0, schedule_reply("w", {.type = 4, .hour = 23, .day_of_week = 7, .minute = 59},
                           {{"backup", 0x0100}, {"cleanup", 0x0009}, {"c", 0xff00}}, 1700000000, 1700003600));
  answer(0, schedule_reply("m", {.type = 5, .hour = 10, .day_of_month = 28}, {}, 1700000000));
  EXPECT_EQ(run(sch_cli_show_schedules, {}), 0);
  const std::string user = "User Name           : alice\nSchedule Type       : ";
  const std::string never = "Last Execution Time : Yet to be executed\n" + kHeading;
  const std::string ran = "Last Execution Time : Tue Nov 14 22:13:20 2023\n";
  EXPECT_EQ(output_.out,
            "Schedule Name       : nightly\n" + std::string(29, '-') + "\n" + user + "Run every day at 2 Hrs 30 Mins\n" +
                never + "          No jobs assigned to schedule\n" + kRule +  // ten blanks
                "Schedule Name       : s\n" + std::string(23, '-') + "\n" + user + "Run on every Monday at 9 Hrs 5 Mins\n" +
                never + "    " + column("backup") + "      -NA-\n" + kRule +  // never run: no result yet
                "Schedule Name       : w\n" + std::string(23, '-') + "\n" + user +
                "Run on every Saturday at 23 Hrs 59 Mins\n" + ran +
                "Last Completion Time: Tue Nov 14 23:13:20 2023\nExecution count     : 3\n" + kHeading +
                column("backup") + "  Failed  (1)\n" + column("cleanup") + "  Success (0)\n" + column("c") +
                "  Failed  (255)\n" + kRule +  // 0x0009: a signal reads as success, intended
                "Schedule Name       : m\n" + std::string(23, '-') + "\n" + user +
                "Run on every 28 of every month at 10 Hrs 0 Mins\n" + ran + "Execution count     : 3\n" + kHeading +
                "              No jobs assigned to schedule\n" + kRule);  // fourteen blanks
  EXPECT_EQ(requests().at(1), image(48, {{0, 6}, {4, 40}, {44, 0x10}}));
}

TEST_F(ShowSchedules, FailuresAndBrokenRepliesEndTheWalk) {
  answer(0, schedule_reply("a", {.type = 3}));
  answer(CMI_ERR_DAEMON_CLOSED);
  EXPECT_EQ(run(sch_cli_show_schedules, {}), 1);
  EXPECT_NE(output_.out.find("Schedule Name       : a\n"), std::string::npos);  // what was shown stays
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_DAEMON_CLOSED));
  for (const Bytes &broken : {Bytes(819, 0), schedule_reply("a", {.type = 3}, {{"backup", 0}}, 0, 0, 2)}) {
    answer(0, broken);
    EXPECT_EQ(run(sch_cli_show_schedules, {}), 1);
    EXPECT_EQ(output_.out + output_.err, error_line("Error", CMI_ERR_LENGTH));
  }
}

TEST(SchedulePrinters, MonthlySuffixesWeekdaysAndKinds) {
  const std::pair<int, const char *> days[] = {{1, "1st"},   {2, "2nd"},   {3, "3rd"},   {4, "4th"},   {11, "11th"},
                                               {12, "12th"}, {13, "13th"}, {20, "20th"}, {21, "21st"}, {22, "22nd"},
                                               {23, "23rd"}, {24, "24th"}, {28, "28"},   {29, "29th"}, {31, "31st"}};
  for (auto [day, text] : days) {
    tminfo t{.type = 5, .hour = 10, .day_of_month = day};
    EXPECT_EQ(capture([&] { print_monthly_schedule(&t); }).out,
              std::string("Run on every ") + text + " of every month at 10 Hrs 0 Mins\n");
  }
  for (int day : {0, 8}) {
    tminfo t{.type = 4, .day_of_week = day};
    EXPECT_EQ(capture([&] { print_weekly_schedule(&t); }).out, "Run on every ** at 0 Hrs 0 Mins\n");
  }
  setenv("TZ", "UTC", 1);
  tzset();
  for (auto [type, text] : {std::pair{1, "Run once on Sat Jun 15 10:30:00 2030\n"}, {0, "None\n"}, {2, "None\n"},
                            {6, "None\n"}, {8, "None\n"}}) {
    tminfo t{.type = type, .hour = 10, .day_of_month = 15, .minute = 30, .month = 5, .year = 130};
    EXPECT_EQ(capture([&] { print_schedule_type(&t); }).out, std::string("Schedule Type       : ") + text);
  }
}

}  // namespace

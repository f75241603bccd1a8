// Schedule commands: create and delete, email addresses, and the commands of a schedule's mode
// with their time strings checked and completed before anything is sent.
#include <ctime>

#include "cli_testing.h"
#include "schedcli/status.h"

namespace {

using namespace cli_testing;
using Words = std::vector<uint32_t>;

class ScheduleCommands : public CliTest {
 protected:
  // The time words sent for `text`: type, hour, day of week, day of month, minute, month, year,
  // start. Defaults come from the clock, so the command is repeated should the hour turn while
  // it runs; `now` is the clock it saw.
  Words sent_time(uint32_t code, const char *text) {
    for (int attempt = 0; attempt < 3; attempt++) {
      int hour = clock().tm_hour;
      EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", text}, code), 0u) << text << output_.err;
      if (clock().tm_hour == hour) break;
    }
    Bytes sent = requests().back();
    Words words;
    for (size_t offset = 88; offset < 120; offset += 4) words.push_back(sch_wire_get_u32(&sent.at(offset)));
    return words;
  }
  const struct tm &clock() {
    time_t seconds = time(nullptr);
    localtime_r(&seconds, &now);
    return now;
  }
  struct tm now{};
};

TEST_F(ScheduleCommands, CreateDeleteAndEmailSendTheirRecords) {
  EXPECT_EQ(run(sch_cli_create_delete_schedule, {"nightly"}), 0u);
  EXPECT_EQ(run(sch_cli_create_delete_schedule, {"nightly"}, 0, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule_emailaddr, {"nightly", "ops@example.com"}), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule_emailaddr, {"nightly", std::string(70, 'm').c_str()}, 0, true), 0u);
  auto sent = requests();
  EXPECT_EQ(sent.at(0), image(48, {{0, 3}, {4, 40}}, {{16, "nightly"}}));
  EXPECT_EQ(sent.at(1), image(48, {{0, 5}, {4, 40}, {8, 1}}, {{16, "nightly"}}));
  // Byte-packed: the operation byte tells add (20) from delete (21); the type is 20 for both.
  EXPECT_EQ(sent.at(2), image(105, {{0, 20}, {4, 97}}, {{8, "\x14nightly"}, {41, "ops@example.com"}}));
  EXPECT_EQ(sent.at(3), image(105, {{0, 20}, {4, 97}}, {{8, "\x15nightly"}, {41, std::string(63, 'm')}}));
}

TEST_F(ScheduleCommands, CreateDeleteAndEmailFailures) {
  EXPECT_EQ(run(sch_cli_create_delete_schedule, {"night ly"}), 255u);
  EXPECT_EQ(output_.err, "Invalid name. Name should begin with alphanumeric and may have '_' or '-'.\n");
  const uint32_t exists = SCH_STATUS_EXISTS, timeout = CMI_ERR_TIMEOUT;
  const std::tuple<uint32_t (*)(sch_cli_context *), bool, uint32_t, uint32_t, std::string> cases[] = {
      {sch_cli_create_delete_schedule, false, exists, exists, ""},  // entering an existing one is quiet
      {sch_cli_create_delete_schedule, false, timeout, 255, error_line("Error: create schedule failed", timeout)},
      {sch_cli_create_delete_schedule, true, timeout, timeout, error_line("Error: delete schedule failed", timeout)},
      {sch_cli_modify_schedule_emailaddr, false, timeout, timeout, error_line("Error: could add email-id", timeout)},
      {sch_cli_modify_schedule_emailaddr, true, timeout, timeout, error_line("Error: could not delete email-id", timeout)},
      {sch_cli_modify_schedule, false, timeout, timeout, error_line("Error: could not assign job", timeout)},
      {sch_cli_modify_schedule, true, timeout, timeout, error_line("Error: could not deassign job", timeout)},
  };
  for (const auto &[handler, no_form, status, result, err] : cases) {
    answer(status);
    EXPECT_EQ(run(handler, {"nightly", "backup"}, SCH_MODIFY_JOB, no_form), result) << err;
    EXPECT_EQ(output_.err, err);
  }
  answer(timeout);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, SCH_MODIFY_DAILY), timeout);
  EXPECT_EQ(output_.err, error_line("Error: modify schedule failed", timeout));
}

TEST_F(ScheduleCommands, JobCommandsCarryNamesAndNoTime) {
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "backup"}, SCH_MODIFY_JOB), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "backup"}, SCH_MODIFY_JOB, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly"}, SCH_MODIFY_JOB_NO_NAME, true), 0u);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, 42), 0u);  // unknown codes: no time
  auto sent = requests();
  EXPECT_EQ(sent.at(0), image(128, {{0, 4}, {4, 120}, {16, 999}}, {{20, "nightly"}, {52, "backup"}}));
  EXPECT_EQ(sent.at(1), image(128, {{0, 4}, {4, 120}, {8, 1}, {16, 999}}, {{20, "nightly"}, {52, "backup"}}));
  EXPECT_EQ(sent.at(2), image(128, {{0, 4}, {4, 120}, {8, 1}, {16, 1000}}, {{20, "nightly"}}));
  EXPECT_EQ(sent.at(3), image(128, {{0, 4}, {4, 120}, {16, 42}}, {{20, "nightly"}}));
  // A time is replaced, never removed: its no form is refused before anything is sent.
  for (uint32_t code : {1u, 3u, 4u, 5u, 7u}) {
    EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "02:30"}, code, true), kRefused);
    EXPECT_EQ(output_.out, "Invalid command\n");
  }
  EXPECT_EQ(requests().size(), 4u);
}

TEST_F(ScheduleCommands, TimesAreCompletedFromTheClock) {
  EXPECT_EQ(sent_time(3, "02:30"), (Words{3, 2, 0, 0, 30, 0, 0, 0}));
  Words words = sent_time(3, "45");
  EXPECT_EQ(words, (Words{3, uint32_t(now.tm_hour), 0, 0, 45, 0, 0, 0}));
  EXPECT_EQ(sent_time(4, "Mon:9:05"), (Words{4, 9, 2, 0, 5, 0, 0, 0}));
  words = sent_time(4, "10");
  EXPECT_EQ(words, (Words{4, uint32_t(now.tm_hour), uint32_t(now.tm_wday + 1), 0, 10, 0, 0, 0}));
  EXPECT_EQ(sent_time(5, "15:10:00"), (Words{5, 10, 0, 15, 0, 0, 0, 0}));
  words = sent_time(5, "10:05");
  EXPECT_EQ(words, (Words{5, 10, 0, uint32_t(now.tm_mday), 5, 0, 0, 0}));
  words = sent_time(1, "2030:Jun:15:10:30");
  EXPECT_EQ(Words(words.begin() + 3, words.end() - 1), (Words{15, 30, 5, 130}));  // month 0..11, year - 1900
}

TEST_F(ScheduleCommands, RefusedTimeStringsAreExplainedAndNotSent) {
  const std::tuple<uint32_t, std::vector<const char *>, const char *> cases[] = {
      {3, {"nightly", "25:00"}, "Value out of range\nShould be HH:MM.\n"},
      {3, {"nightly", "ab"}, "Incorrect time format. Should be HH:MM\n"},
      {4, {"nightly", "8:10:00"}, "Value out of range\nShould be dow:HH:MM.\n"},
      {5, {"nightly", ":10"}, "Incorrect time format. Should be dm:HH:MM\n"},
      {5, {"nightly", "32:1:0"}, "Value out of range\nShould be dm:HH:MM\n"},
      {1, {"nightly", "2000:Jan:1:00:00"}, "Specified time is in the past\n"},
      {1, {"nightly", "soon"}, "Incorrect time format. Should be yyyy:mmm:dd:HH:MM"},
      {7, {"nightly", "2000:Jan:1:00:00", "1:0:0"}, "Specified time is in the past\n"},  // a start is a one-shot
      {7, {"nightly", "every"}, "Incorrect time format. Should be dd:HH:MM\n"},
      // Beyond the record's 32-bit seconds, where it would wrap round to 2033.
      {7, {"nightly", "2170:Jan:1:00:00", "1:0:0"}, "Value out of range\n"},
  };
  for (const auto &[code, params, explanation] : cases) {
    EXPECT_EQ(run(sch_cli_modify_schedule, params, code), kRefused);
    EXPECT_EQ(output_.err.rfind(explanation, 0), 0u) << output_.err;
  }
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "0:0:0"}, 7), kRefused);
  EXPECT_EQ(output_.out, "Interval cannot be zero\n");
  EXPECT_TRUE(requests().empty());
}

TEST_F(ScheduleCommands, RepeatWithoutAStartBeginsTwoMinutesAheadAndSaysSo) {
  time_t before = time(nullptr);
  Words words = sent_time(7, "1:2:3");
  time_t start = int32_t(words[7]);
  EXPECT_GE(start, before + 120);
  EXPECT_LE(start, time(nullptr) + 120);
  EXPECT_EQ(words, (Words{7, 2, 1, ~0u, 3, ~0u, ~0u, words[7]}));
  char text[64];
  EXPECT_EQ(output_.out, std::string("Schedule starts from ") + ctime_r(&start, text));

  // With a start: that start, quietly; after a failure nothing is announced.
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "2030:Jun:15:10:30", "0:0:30"}, 7), 0u);
  EXPECT_EQ(sch_wire_get_u32(&requests().back().at(88 + 28)), 1907749800u);  // 2030-06-15 10:30 UTC
  EXPECT_EQ(output_.out, "");
  answer(CMI_ERR_TIMEOUT);
  EXPECT_EQ(run(sch_cli_modify_schedule, {"nightly", "1:0:0"}, 7), CMI_ERR_TIMEOUT);
  EXPECT_EQ(output_.out, "");
}

}  // namespace

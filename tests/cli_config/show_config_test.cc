// show configuration: the pieces asked for in order, how each is printed, and how a failed or
// short piece is reported while the others go on.
#include <algorithm>

#include "config_testing.h"
#include "support/traces.h"

namespace {

using namespace config_testing;

Bytes transport(const char *from, const char *reply_to, const char *server, uint32_t port) {
  return image(712, {{448, 16}, {452, port}}, {{0, from}, {64, reply_to}, {192, server}, {456, "management"}});
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

// `emails`: address and in-use word of the first slots; `declared` overrides the job count.
Bytes schedule(const char *name, tminfo time, std::vector<std::string> jobs = {},
               std::vector<std::pair<const char *, uint32_t>> emails = {}, int declared = -1) {
  sch_schedule_reply head{.cursor = 0x20, .time = time, .job_count = uint32_t(declared >= 0 ? declared : jobs.size())};
  std::snprintf(head.name, sizeof head.name, "%s", name);
  head.any_email = !emails.empty();
  for (size_t i = 0; i < emails.size(); i++) {
    std::snprintf(head.emails[i].address, SCH_EMAIL_SIZE, "%s", emails[i].first);
    head.emails[i].in_use = emails[i].second;
  }
  Bytes reply(sizeof head);
  sch_wire_encode(SCH_WIRE_SCHEDULE_REPLY, &head, reply.data());
  for (const std::string &name : jobs) {
    Bytes entry = image(36, {}, {{0, name}});
    reply.insert(reply.end(), entry.begin(), entry.end());
  }
  return reply;
}

constexpr int32_t kJune15th2030 = 1907749800;  // 10:30 UTC

class ShowConfig : public ConfigTest {
 protected:
  void SetUp() override { sch::testing::clear_traces(); }
};

TEST_F(ShowConfig, WholeConfigurationInOrder) {
  daemon_.answer(0, image(4, {{0, 16384}}));
  daemon_.answer(0, transport("ops@example.com", "noreply@example.com", "mail.example.com", 25));
  daemon_.answer(0, users({{"rita", "ENC-RITA"}, {"remo", "ENC-REMO"}}));
  daemon_.answer(0, job("backup", 7, "show clock\ncopy run start\n"));
  daemon_.answer(0, job(std::string(32, 'j'), 9, ""));  // a name that fills its field
  daemon_.answer(0);
  daemon_.answer(0, schedule("nightly", {.type = 3, .hour = 2, .minute = 30}, {"backup", "clean"},
                             {{"a@example.com", 1}, {"unused@example.com", 0}, {"b@example.com", 1}}));
  daemon_.answer(0, schedule("r", {.type = 7, .minute = 30, .start_time = kJune15th2030}));
  EXPECT_EQ(run(sch_cli_show_config), 0);
  EXPECT_EQ(err_, "");
  EXPECT_EQ(out_,
            "config terminal\n  feature scheduler\n  scheduler logfile size 16\n"
            "  scheduler transport email from ops@example.com\n"
            "  scheduler transport email reply-to  noreply@example.com\n"
            "  scheduler transport email smtp-server mail.example.com\nend\n\n"
            "config terminal\nscheduler aaa-authentication username rita password 7 ENC-RITA\nend\n"
            "config terminal\nscheduler aaa-authentication username remo password 7 ENC-REMO\nend\n\n"
            "config terminal\n scheduler job name backup\nshow clock\ncopy run start\nend\n\n"
            "config terminal\n scheduler job name " + std::string(32, 'j') + "\nend\n\n"
            "config terminal\n  scheduler schedule name nightly\n    time daily 02:30\n    job name backup\n"
            "    job name clean\n    email-addr a@example.com\n    email-addr b@example.com\nend\n\n"
            "config terminal\n  scheduler schedule name r\n    time start 2030:06:15:10:30 repeat 30\nend\n\n");

  auto sent = requests();
  ASSERT_EQ(sent.size(), 9u);
  const uint32_t services[] = {59512, 59511, 59511, 59512, 59512, 59512, 59512, 59512, 59512};
  const uint32_t types[] = {12, 19, 23, 7, 7, 7, 6, 6, 6};
  for (size_t i = 0; i < 3; i++) EXPECT_EQ(sent[i].bytes, image(8, {{0, types[i]}}));
  for (size_t i = 0; i < sent.size(); i++) {
    EXPECT_EQ(sent[i].service * 10 + sent[i].opcode, services[i]) << i;
    EXPECT_EQ(sch_wire_get_u32(sent[i].bytes.data()), types[i]) << i;
  }
  EXPECT_EQ(sent[4].bytes, image(48, {{0, 7}, {4, 40}, {44, 7}}));  // the cursor echoed
  EXPECT_EQ(sent[6].bytes, image(48, {{0, 6}, {4, 40}, {44, ~0u}}));
  EXPECT_EQ(sent[8].bytes, image(48, {{0, 6}, {4, 40}, {44, 0x20}}));
}

TEST_F(ShowConfig, EachPieceReportsItsOwnFailure) {
  daemon_.answer(CMI_ERR_TIMEOUT);
  daemon_.answer(0, Bytes(711, 0));
  daemon_.answer(CMI_ERR_DAEMON_CLOSED);
  daemon_.answer(0, job("a", 1, "0123456789", 1));
  daemon_.answer(0, schedule("s", {.type = 3}, {"a"}, {}, 2));
  EXPECT_EQ(run(sch_cli_show_config), 0);
  EXPECT_EQ(out_, "end\n\n");
  std::string short_reply = error_line("Error", CMI_ERR_LENGTH);
  EXPECT_EQ(err_, error_line("Error", CMI_ERR_TIMEOUT) + short_reply + error_line("Error: ", CMI_ERR_DAEMON_CLOSED) +
                      short_reply + short_reply);

  daemon_.answer(0, Bytes(3, 0));
  EXPECT_EQ(run(get_log_file_config), 1);
  Bytes users_cut = users({{"rita", "ENC"}, {"remo", "ENC"}});
  users_cut.pop_back();
  daemon_.answer(0, users_cut);
  EXPECT_EQ(run(get_user_config), CMI_ERR_LENGTH);
  EXPECT_EQ(out_, "");
}

TEST(TimeLine, EveryKindPrintedAndCutToFourCharactersAPiece) {
  const tminfo repeat{.type = 7, .start_time = kJune15th2030};
  auto with = [](tminfo t, int days, int hours, int minutes) {
    t.day_of_week = days, t.hour = hours, t.minute = minutes;
    return t;
  };
  const std::tuple<tminfo, const char *, const char *> cases[] = {  // printed; appended to "x"
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
  for (const auto &[time, printed, appended] : cases) {
    ::testing::internal::CaptureStdout();
    print_config_schedule_type(&time, nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), printed);
    char destination[32] = "x";
    print_config_schedule_type(&time, destination);
    EXPECT_STREQ(destination, appended);
  }
}

}  // namespace

// Configuration text of the running and the startup configuration.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "pss/pss_fixture.h"
#include "schedcli/acfg.h"

namespace {

using namespace sch::testing;

class ConfigText : public PssTest {
 protected:
  void TearDown() override {
    filter_mode = 0;
    PssTest::TearDown();
  }
  std::string generate(uint32_t kind, uint32_t filter = 0) {
    std::string startup = (state_dir_ / "startup/").string();
    std::string debug = (state_dir_ / "debug/").string();
    acfg_message message{kind, filter, startup.c_str(), debug.c_str(), nullptr, 0};
    EXPECT_EQ(sch_acfgcb_cfg_gen(nullptr, &message), 0u);
    std::string text = message.response ? std::string(message.response, message.response_length) : "<none>";
    std::free(message.response);
    return text;
  }
};

TEST_F(ConfigText, DefaultsRenderNoSizeNoPortAndPasswordsCanBeHidden) {
  add_user(&sch_uname_q, "remote", "ENCRYPTED7", 0);
  std::strcpy(email_transport_conf.smtp_server, "mail.example.net");
  EXPECT_EQ(generate(ACFG_CFG_RUNNING, ACFG_FILTER_HIDE_PASSWORDS),
            "feature scheduler\n"
            "scheduler aaa-authentication username remote password 7 <removed>\n"
            "\n"
            "scheduler transport email smtp-server  mail.example.net\n");
  sch_log_file.size_limit = 1500;
  EXPECT_NE(generate(ACFG_CFG_RUNNING).find("scheduler logfile size 1\n\n"), std::string::npos);
}

TEST_F(ConfigText, DailyWithoutHourAndNegativeFieldsRenderAsStated) {
  const struct {
    tminfo t;
    const char *line;
  } cases[] = {
      {{3, -1, 0, 0, 45, 0, 0, 0, 0, 0}, "  time daily 45\n"},
      {{4, -1, -1, 0, 7, 0, 0, 0, 0, 0}, "  time weekly 00:00:07\n"},
      {{8, 1, 1, 1, 1, 1, 1, 0, 0, 0}, "  "},  // an unknown kind adds nothing
  };
  for (const auto &c : cases) {
    char line[128] = "  ";
    sch_acfg_print_schedule_type(&c.t, line, sizeof line);
    EXPECT_STREQ(line, c.line);
    sch_acfg_print_schedule_type(&c.t, nullptr, 0);  // nothing to write into: no crash
  }
}

TEST_F(ConfigText, WithoutAStartupStoreTheResponseIsEmptyAndTheSizeIsReset) {
  start_platform(true);
  sch_log_file.size_limit = 4096;
  EXPECT_EQ(generate(ACFG_CFG_STARTUP), "");
  EXPECT_EQ(sch_log_file.size_limit, SCH_LOG_FILE_SIZE_DEFAULT);
  auto texts = trace_texts();
  EXPECT_NE(std::find_if(texts.begin(), texts.end(),
                         [](const std::string &t) { return t.rfind("Error in opening in PSS file 0x", 0) == 0; }),
            texts.end());
  EXPECT_EQ(generate(9), "") << "an unknown kind renders nothing";
}

}  // namespace

// Schedule commands: create and delete, email addresses, and the commands of a schedule's mode
// with their time strings checked and completed before anything is sent.
#include <ctime>

#include "cli_testing.h"
#include "schedcli/status.h"

namespace {

using namespace cli_testing;
using ScheduleCommands = CliTest;

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

}  // namespace

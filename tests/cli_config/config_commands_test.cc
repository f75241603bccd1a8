// The feature, log-file and transport commands: what each sends, and its error lines.
#include <filesystem>
#include <fstream>

#include "config_testing.h"
#include "schedcli/diag.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/sysmgr.h"

namespace {

using namespace config_testing;
using FeatureCommand = ConfigTest;
using LogFileCommands = ConfigTest;
using TransportCommand = ConfigTest;
using SmallEntries = ConfigTest;

std::string doubled_colon_line(uint32_t code) { return error_line("Error: ", code); }

std::vector<std::string> deregistered;

TEST_F(FeatureCommand, EachDirectionToleratesOnlyItsOwnAlreadyCode) {
  deregistered.clear();
  vsh_parse_tree_hook_set([](const char *feature, void *) { deregistered.push_back(feature); }, nullptr);
  // Per run: no form, scripted status, result.
  const std::tuple<bool, uint32_t, int> runs[] = {{false, 0, 0},
                                                  {false, FM_ERR_ALREADY_ENABLED, 0},
                                                  {false, FM_ERR_ALREADY_DISABLED, 1},
                                                  {true, FM_ERR_ALREADY_DISABLED, 0},
                                                  {true, FM_ERR_ALREADY_ENABLED, 1},
                                                  {true, 0, 0}};
  for (auto [no_form, status, result] : runs) {
    EXPECT_TRUE(deregistered.empty()) << "only a disable that went through removes the commands";
    daemon_.answer(status);
    EXPECT_EQ(run(sch_enable_scheduler, 0, no_form), result);
    EXPECT_EQ(err_, status ? error_line("Error", status) : "");
  }
  EXPECT_EQ(deregistered, std::vector<std::string>{"scheduler"});
  vsh_parse_tree_hook_set(nullptr, nullptr);

  Command flagged(daemon_.session());
  flagged.context.feature = 1;
  EXPECT_EQ(run(sch_enable_scheduler, flagged), 0);
  auto sent = requests();
  ASSERT_EQ(sent.size(), 6u);
  for (size_t i = 0; i < sent.size(); i++) {
    EXPECT_EQ(sent[i].service, FM_SERVICE);
    EXPECT_EQ(sent[i].feature, "scheduler");
    EXPECT_EQ(sent[i].feature_action, i < 3 ? FM_FEATURE_ENABLE : FM_FEATURE_DISABLE);
  }
}

TEST_F(LogFileCommands, SizeGoesInBytesAndClearOnlyInItsHeader) {
  EXPECT_EQ(run(sch_cli_logfile_resize, 0, true), 0u);
  Command one_kilobyte(daemon_.session());
  one_kilobyte.number(1).context.debug = 1;
  EXPECT_EQ(run(sch_cli_logfile_resize, one_kilobyte), 0u);
  EXPECT_EQ(err_, "log file size is 1\n");
  EXPECT_EQ(run(sch_cli_logfile_clear), 0u);
  EXPECT_EQ(out_ + err_, "");

  auto sent = requests();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].service * 10 + sent[0].opcode, 59503u);
  EXPECT_EQ(sent[0].bytes, image(532, {{0, 9}, {4, 524}, {8, 1}, {528, 16384}}));
  EXPECT_EQ(sent[1].bytes, image(532, {{0, 9}, {4, 524}, {528, 1024}}));
  EXPECT_EQ(sent[2].bytes, image(532, {{0, 11}, {4, 524}}));
}

TEST_F(LogFileCommands, FailuresPrintTheDoubledColon) {
  Command size(daemon_.session()), clear(daemon_.session()), rename(daemon_.session(), 0, true);
  size.number(64);
  using Handler = uint32_t (*)(sch_cli_context *);
  for (auto [handler, command] : {std::pair<Handler, Command *>{sch_cli_logfile_resize, &size},
                                  {sch_cli_logfile_clear, &clear}, {sch_cli_logfile_rename, &rename}}) {
    daemon_.answer(CMI_ERR_TIMEOUT);
    EXPECT_EQ(run(handler, *command), CMI_ERR_TIMEOUT);
    EXPECT_EQ(err_, doubled_colon_line(CMI_ERR_TIMEOUT));
  }
}

TEST_F(LogFileCommands, RenameSendsPathAndUriButRefusesAnExistingFile) {
  std::string state = daemon_.directory() + "/state";
  ASSERT_EQ(sysmgr_dirs_set(state.c_str(), (daemon_.directory() + "/run").c_str()), 0);
  std::filesystem::create_directories(state + "/logs");
  std::ofstream(state + "/logs/taken.log") << "x";

  EXPECT_EQ(run(sch_cli_logfile_rename, 0, true), 0u);
  Command taken(daemon_.session()), fresh(daemon_.session());
  EXPECT_EQ(run(sch_cli_logfile_rename, taken.file("logs:taken.log")), 0u);
  EXPECT_EQ(err_, "Error: File exists.\n");
  EXPECT_EQ(run(sch_cli_logfile_rename, fresh.file("logs:new.log")), 0u);
  sysmgr_dirs_clear();

  auto sent = requests();
  ASSERT_EQ(sent.size(), 2u) << "nothing is sent for an existing file";
  EXPECT_EQ(sent[0].bytes, image(532, {{0, 10}, {4, 524}, {8, 1}}, {{16, "scheduler_circular_log.dat"}, {272, "NONE"}}));
  EXPECT_EQ(sent[1].bytes, image(532, {{0, 10}, {4, 524}}, {{16, state + "/logs/new.log"}, {272, "logs:new.log"}}));
}

TEST_F(TransportCommand, FromAndReplyToAndTheirNoForms) {
  Command from(daemon_.session(), SCH_TRANSPORT_FROM), reply_to(daemon_.session(), SCH_TRANSPORT_REPLY_TO);
  const std::string full(64, 'r');  // fills the field: sent without a terminator
  EXPECT_EQ(run(sch_cli_config_email_transport, from.text("ops@example.com")), 0u);
  EXPECT_EQ(run(sch_cli_config_email_transport, reply_to.text(full.c_str())), 0u);
  EXPECT_EQ(run(sch_cli_config_email_transport, SCH_TRANSPORT_FROM, true), 0u);
  EXPECT_EQ(run(sch_cli_config_email_transport, SCH_TRANSPORT_REPLY_TO, true), 0u);

  auto sent = requests();
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].bytes, image(720, {{0, 13}, {4, 712}}, {{8, "ops@example.com"}}));
  EXPECT_EQ(sent[1].bytes, image(720, {{0, 15}, {4, 712}}, {{8 + 64, full}, {8 + 128, full}}));
  EXPECT_EQ(sent[2].bytes, image(720, {{0, 14}, {4, 712}}));
  EXPECT_EQ(sent[3].bytes, image(720, {{0, 16}, {4, 712}}));
}

TEST_F(TransportCommand, SmtpServerKindsPortAndVrf) {
  struct Case {
    const char *server;
    uint32_t address_kind, kind, port;
    std::vector<int> options;  // positive: a port; -1: the VRF "mgmt"
  };
  const Case cases[] = {{"mail.example.com", SCH_ADDRESS_HOST_NAME, 16, 25, {}},
                        {"192.0.2.1", SCH_ADDRESS_IPV4, 1, 2525, {2525}},
                        {"2001:db8::1", SCH_ADDRESS_IPV6, 2, 25, {-1}},
                        {"mail", SCH_ADDRESS_HOST_NAME, 16, 587, {587, -1}}};
  for (const Case &c : cases) {
    Command command(daemon_.session(), SCH_TRANSPORT_SMTP_SERVER);
    command.text(c.server, c.address_kind);
    for (int option : c.options) option > 0 ? command.number(option) : command.text("mgmt");
    EXPECT_EQ(run(sch_cli_config_email_transport, command), 0u);
    std::string vrf = c.options.empty() || c.options.back() > 0 ? "" : "mgmt";
    EXPECT_EQ(requests().back().bytes,
              image(720, {{0, 17}, {4, 712}, {8 + 448, c.kind}, {8 + 452, c.port}}, {{8 + 192, c.server}, {8 + 456, vrf}}));
  }
  EXPECT_EQ(run(sch_cli_config_email_transport, SCH_TRANSPORT_SMTP_SERVER, true), 0u);
  EXPECT_EQ(requests().back().bytes, image(720, {{0, 18}, {4, 712}, {8 + 452, 25}}));
}

TEST_F(TransportCommand, RefusedServerUnknownOptionAndFailure) {
  Command broadcast(daemon_.session(), SCH_TRANSPORT_SMTP_SERVER), from(daemon_.session(), SCH_TRANSPORT_FROM);
  EXPECT_EQ(run(sch_cli_config_email_transport, broadcast.text("255.255.255.255", 0x40000001u)), 1u);
  EXPECT_EQ(err_, "Invalid host address");
  EXPECT_TRUE(requests().empty());

  EXPECT_EQ(run(sch_cli_config_email_transport, 112), 0u);
  EXPECT_EQ(requests().at(0).bytes, image(720, {{4, 712}}));  // type 0, nothing filled

  daemon_.answer(CMI_ERR_NO_DAEMON);
  EXPECT_EQ(run(sch_cli_config_email_transport, from.text("ops@example.com")), CMI_ERR_NO_DAEMON);
  EXPECT_EQ(err_, doubled_colon_line(CMI_ERR_NO_DAEMON));
}

TEST_F(SmallEntries, MemstatsShowsTheDaemonsDumpAndTheDummyGeneratorDoesNothing) {
  // The statistics worth seeing are the daemon's: the shell asks for them and prints them.
  const std::string dump = "identity kind live\n224 5 3\n";
  daemon_.answer(0, Bytes(dump.begin(), dump.end()));
  EXPECT_EQ(run(sch_cli_show_memstats), 0);
  EXPECT_EQ(out_, dump);
  ASSERT_EQ(requests().size(), 1u);
  EXPECT_EQ(requests()[0].service, ACFG_SERVICE);
  EXPECT_EQ(requests()[0].opcode, ACFG_OP_MEMORY_STATS);
  EXPECT_EQ(sch_cli_dummy_cfg_gen(), 0);
  EXPECT_EQ(requests().size(), 1u);
}

}  // namespace

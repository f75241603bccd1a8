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

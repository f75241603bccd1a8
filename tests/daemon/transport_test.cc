// The email transport: sender, reply-to and SMTP server, set and cleared, and shown whole.
#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonTransport : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  static sch_email_transport_conf server(const std::string &name, uint32_t kind, uint32_t port = 25,
                                         const std::string &vrf = "") {
    sch_email_transport_conf conf{};
    set_text(conf.smtp_server, name);
    conf.smtp_reserved = kind;
    conf.smtp_port = port;
    set_text(conf.vrf, vrf);
    return conf;
  }
  static sch_email_transport_conf addresses(const std::string &from, const std::string &reply_to) {
    sch_email_transport_conf conf{};
    set_text(conf.from, from);
    set_text(conf.reply_to, reply_to);
    set_text(conf.reply_to_copy, reply_to);
    return conf;
  }
  Answer send(uint32_t type, const sch_email_transport_conf &conf = {}) {
    return configure(transport_request(type, conf));
  }
  // The transport as type 19 shows it: "from|reply-to|copy|server|kind|port|vrf".
  std::string shown() {
    Answer answer = call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY_SIMPLE, header_request(SCH_REQ_GET_EMAIL_TRANSPORT));
    EXPECT_TRUE(answered(answer, 0));
    EXPECT_EQ(answer.payload.size(), 712u);
    sch_email_transport_conf c{};
    sch_wire_decode(SCH_WIRE_TRANSPORT_CONF, answer.payload.data(), answer.payload.size(), &c);
    return std::string(c.from) + "|" + c.reply_to + "|" + c.reply_to_copy + "|" + c.smtp_server + "|" +
           std::to_string(c.smtp_reserved) + "|" + std::to_string(c.smtp_port) + "|" + c.vrf;
  }
};

TEST_F(DaemonTransport, SetShowAndClearEachPartAcrossARestart) {
  EXPECT_EQ(shown(), "||||1|25|management");
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_FROM, addresses("sched@example.com", "")), 0));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_REPLY_TO, addresses("", "ops@example.com")), 0));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_SMTP, server("2001:db8::25", 2, 587, "default")), 0));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(shown(), "sched@example.com|ops@example.com|ops@example.com|2001:db8::25|2|587|default");

  // Each no form clears its own part only.
  EXPECT_TRUE(answered(send(SCH_REQ_NO_EMAIL_REPLY_TO), 0));
  EXPECT_EQ(shown(), "sched@example.com|||2001:db8::25|2|587|default");
  EXPECT_TRUE(answered(send(SCH_REQ_NO_EMAIL_FROM), 0));
  sch_email_transport_conf port_only{};
  port_only.smtp_port = 25;
  EXPECT_TRUE(answered(send(SCH_REQ_NO_EMAIL_SMTP, port_only), 0));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(shown(), "||||1|25|management");
}

TEST_F(DaemonTransport, ServerWithoutVrfUsesTheDefaultOneAndBadPartsAreRefused) {
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_SMTP, server("mail.example.com", 16)), 0));
  EXPECT_EQ(shown(), "|||mail.example.com|16|25|management");

  for (const sch_email_transport_conf &bad :
       {server("mail.example.com", 1), server("192.0.2.1", 2), server("192.0.2.1", 3), server("", 16),
        server("two words", 16), server("mail", 16, 25, "a vrf"), server(std::string(256, 'm'), 16),
        // Names the shell would not read back from the configuration text.
        server("mail.example.com:", 16), server("mail..example.com", 16), server("-mail.example.com", 16),
        server("192.0.2.300", 16), server(std::string(64, 'm') + ".com", 16)}) {
    EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_SMTP, bad), SCH_STATUS_BAD_REQUEST)) << bad.smtp_server;
  }
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_SMTP, server("192.0.2.1", 1, 0)), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_SMTP, server("192.0.2.1", 1, 65536)), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_FROM, addresses("", "")), SCH_STATUS_BAD_ADDRESS));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_FROM, addresses("a@b.c\nscheduler job name x", "")), SCH_STATUS_BAD_ADDRESS));
  EXPECT_TRUE(answered(send(SCH_REQ_EMAIL_REPLY_TO, addresses("", std::string(64, 'r'))), SCH_STATUS_BAD_ADDRESS));
  EXPECT_EQ(shown(), "|||mail.example.com|16|25|management") << "nothing refused was applied";
}

}  // namespace

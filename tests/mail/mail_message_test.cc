// Composition of the job-output message: the address rule, header safety and the body's lines.
#include "mail_message.h"

#include <signal.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace schedd::mail;

TEST(MailAddress, AcceptsPlainAddressesUpToTheFieldWidth) {
  EXPECT_TRUE(valid_address("ops@example.com"));
  EXPECT_TRUE(valid_address("first.last+tag@mail-1.example.org"));
  EXPECT_TRUE(valid_address("root@switch1"));
  EXPECT_TRUE(valid_address("Zz09@zone9.example.com"));  // each end of each character range
  std::string longest = std::string(51, 'a') + "@example.com";  // 63 bytes
  ASSERT_EQ(longest.size(), kMaxAddressLength);
  EXPECT_TRUE(valid_address(longest));
  EXPECT_FALSE(valid_address("a" + longest));
}

TEST(MailAddress, RefusesAnythingThatCouldReachTheEnvelopeOrAHeader) {
  for (const char *bad : {"", "ops", "@example.com", "ops@", "ops@@example.com", "a@b@example.com",
                          "ops@example.com\r\nRCPT TO:<x@y>", "ops\n@example.com", "ops@exa mple.com",
                          " ops@example.com", "ops@example.com>", "<ops@example.com", "ops@example.com> SIZE=1",
                          "\"o p\"@example.com", ".ops@example.com", "ops.@example.com", "o..ps@example.com",
                          "ops@-example.com", "ops@example..com", "ops@example.com.", "ops@exa_mple.com",
                          "ops@ex\xC3\xA4mple.com", "o\tps@example.com"}) {
    EXPECT_FALSE(valid_address(bad)) << bad;
  }
  EXPECT_FALSE(valid_address(std::string("ops\0x@example.com", 17)));
}

TEST(MailHeaders, UnsafeBytesNeverReachAHeader) {
  EXPECT_TRUE(valid_header_text("Scheduler job backup", 64));
  EXPECT_FALSE(valid_header_text("a\r\nBcc: x@y", 64));
  EXPECT_FALSE(valid_header_text(std::string("a\0b", 3), 64));
  EXPECT_FALSE(valid_header_text("abcdef", 5));
  EXPECT_EQ(header_safe("job\r\nBcc: x@y\xC3\xA4", 64), "job??Bcc: x@y??");
  EXPECT_EQ(header_safe("abcdef", 3), "abc");
}

TEST(MailHeaders, ResultReadsAsTheRunLogShowsIt) {
  EXPECT_EQ(result_text(0), "Success (0)");
  EXPECT_EQ(result_text(3 << 8), "Failed (3)");
  EXPECT_EQ(result_text(9), "Failed (0)");  // killed by a signal: no exit code
}

TEST(MailHeaders, DateIsRfc5322WithANumericZone) {
  // The test runs with TZ=UTC.
  EXPECT_EQ(rfc5322_date(0), "Thu, 1 Jan 1970 00:00:00 +0000");
  EXPECT_EQ(rfc5322_date(1795398919), "Mon, 23 Nov 2026 01:55:19 +0000");
}

TEST(MailHeaders, DefaultSenderFallsBackWhenTheHostNameIsNoDomain) {
  EXPECT_EQ(default_sender("switch1.example.net"), "scheduler@switch1.example.net");
  EXPECT_EQ(default_sender("bad host"), "scheduler@localhost");
  EXPECT_EQ(make_message_id(5, 0xabc, "sw1"), "5.0000000000000abc@sw1");
}

TEST(MailBody, NulAndInvalidUtf8BecomeReplacementCharacters) {
  EXPECT_EQ(body_text(std::string("a\0b", 3), false, 100), "a\xEF\xBF\xBD" "b\r\n");
  EXPECT_EQ(body_text("\xC3\xA4 \xFF \xC0\x80 \xED\xA0\x80", false, 100),
            "\xC3\xA4 \xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\r\n");
}

TEST(MailBody, OutputIsBoundedWithAMarkerWhereCut) {
  EXPECT_EQ(body_text("abcdef", false, 4), "abcd\r\n" + std::string(kOutputCutMarker) + "\r\n");
  EXPECT_EQ(body_text("abc\xE2\x82\xAC", false, 5), "abc\r\n" + std::string(kOutputCutMarker) + "\r\n");
  EXPECT_EQ(body_text("abc\xE2\x82\xAC", false, 6), "abc\xE2\x82\xAC\r\n");
  EXPECT_EQ(body_text("line\n", true, 100), "line\r\n" + std::string(kOutputCutMarker) + "\r\n");
}

TEST(MailCompose, RefusesBadSenderReplyToAndEmptyRecipients) {
  RunReport run;
  Addressing addressing{"ops@example.com", "", {"a@example.com"}};
  std::string message = "unchanged", error;
  addressing.sender = "ops@example.com\r\nBcc: x@y";
  EXPECT_FALSE(compose(run, addressing, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_EQ(error, "invalid sender address");
  addressing.sender = "ops@example.com";
  addressing.reply_to = "r@example.com\n";
  EXPECT_FALSE(compose(run, addressing, "sw1", "1.2@sw1", {}, &message, &error));
  addressing.reply_to = "";
  addressing.recipients.clear();
  EXPECT_FALSE(compose(run, addressing, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_EQ(message, "unchanged");
}

TEST(MailCompose, AFailedRunNamesItsReasonOrTheSignalThatEndedIt) {
  RunReport run;
  run.schedule = "s";
  run.job = "j";
  run.failure_reason = "unknown user";
  std::string message, error;
  ASSERT_TRUE(compose(run, {"o@x.org", "", {"a@x.org"}}, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_NE(message.find("Subject: Scheduler job j of schedule s on sw1: Failed (1)\r\n"), std::string::npos);
  EXPECT_NE(message.find("Reason   : unknown user\r\n"), std::string::npos);
  run.failure_reason.clear();
  run.wait_status = SIGKILL;  // ended by the signal, no exit code
  ASSERT_TRUE(compose(run, {"o@x.org", "", {"a@x.org"}}, "sw1", "1.2@sw1", {}, &message, &error));
  EXPECT_NE(message.find("Signal   : 9\r\n"), std::string::npos) << message;
}

}  // namespace

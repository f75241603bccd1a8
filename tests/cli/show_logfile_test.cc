// show scheduler logfile: the request, the walk over the daemon's stream, and how entries print.
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "support/fake_daemon.h"
#include "support/temp_dir.h"

namespace {

using namespace sch::testing;

const std::string kRule = std::string(78, '=') + "\n";
const std::string kOutputRule = std::string(33, '-') + " Job Output " + std::string(33, '-') + "\n";

// One log message: the header of an entry and a part of its output.
Bytes log_message(int32_t count, int32_t number, uint32_t status, int32_t total, const std::string &part,
                  const std::string &job = "backup", const std::string &schedule = "nightly") {
  Bytes bytes = image(128, {{0, uint32_t(count)}, {4, uint32_t(number)}, {112, status}, {116, 86400},
                            {120, uint32_t(total)}, {124, uint32_t(part.size())}},
                      {{8, job}, {40, schedule}, {72, "alice"}});
  bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

std::string entry_text(const std::string &status, const std::string &output, const std::string &job = "backup") {
  return "Job Name       : " + job + std::string(32 - job.size(), ' ') + "  Job Status: " + status + "\n" +
         "Schedule Name  : nightly" + std::string(25, ' ') + "  User Name : alice\n" +
         "Completion time: Fri Jan  2 00:00:00 1970\n" + kOutputRule + output + kRule;
}

// A daemon that answers the one streaming request with scripted messages, then ends the stream.
class StreamingDaemon {
 public:
  explicit StreamingDaemon(std::vector<Bytes> messages, bool end = true) {
    std::string path = directory_ + "/" CMI_SOCKET_NAME;
    EXPECT_EQ(cmi_server_listen(path.c_str(), &listen_fd_), 0u);
    session_ = cmi_session_open(path.c_str());
    cmi_session_timeout_set(session_, 2000);
    thread_ = std::thread([this, messages = std::move(messages), end] {
      int connection = -1;
      for (int tries = 0; tries < 200 && connection < 0; tries++) {
        pollfd watch{listen_fd_, POLLIN, 0};
        if (poll(&watch, 1, 20) > 0 && cmi_server_accept(listen_fd_, &connection) != 0) connection = -1;
      }
      if (connection < 0) return;
      cmi_request request{};
      if (cmi_server_receive(connection, &request) == 0) {
        request_.assign(static_cast<uint8_t *>(request.payload), static_cast<uint8_t *>(request.payload) + request.length);
        for (const Bytes &message : messages) {
          cmi_server_stream_send(connection, request.token, message.data(), uint32_t(message.size()));
        }
        if (end) cmi_server_stream_end(connection, request.token, 0);
        cmi_request_release(&request);
      }
      // Held open until the client has read what it wants.
      cmi_request more{};
      while (cmi_server_receive(connection, &more) == 0) cmi_request_release(&more);
      close(connection);
    });
  }
  ~StreamingDaemon() {
    cmi_session_close(session_);
    thread_.join();
    close(listen_fd_);
  }

  cmi_session *session() const { return session_; }
  const Bytes &request() const { return request_; }

 private:
  sch::testing::TempDir temp_;
  std::string directory_ = temp_.path();
  int listen_fd_ = -1;
  cmi_session *session_ = nullptr;
  Bytes request_;
  std::thread thread_;
};

class ShowLogfile : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
  int show(StreamingDaemon &daemon, std::vector<const char *> values = {}) {
    Command command(daemon.session(), kLocalUser, values);
    int result = -99;
    output_ = capture([&] { result = sch_cli_show_logfile(&command.context); });
    return result;
  }
  Output output_;
};

TEST_F(ShowLogfile, RequestCarriesTypeLengthNameAndFirstCursor) {
  StreamingDaemon daemon({log_message(0, 0, 0, 0, "")});
  EXPECT_EQ(show(daemon, {"nightly"}), 0);
  EXPECT_EQ(daemon.request(), image(48, {{0, 8}, {4, 40}, {44, 0xffffffffu}}, {{12, "nightly"}}));
  EXPECT_EQ(output_.out, "") << "an empty log prints nothing";
  EXPECT_EQ(output_.err, "");
}

TEST_F(ShowLogfile, OutputSplitOverMessagesIsJoinedInOrder) {
  std::string output;
  for (int i = 0; i < 10000; i++) output.push_back(char('a' + i % 26));
  StreamingDaemon daemon({log_message(1, 1, 0, 10000, output.substr(0, 4000)),
                          log_message(1, 1, 0, 10000, output.substr(4000, 4000)),
                          log_message(1, 1, 0, 10000, output.substr(8000))});
  EXPECT_EQ(show(daemon), 0);
  EXPECT_EQ(output_.out, entry_text("Success (0)", output));
}

TEST_F(ShowLogfile, StreamEndingEarlyIsAReceiveErrorAndTheCommandStillSucceeds) {
  StreamingDaemon daemon({log_message(2, 1, 0, 3, "ok\n")});
  EXPECT_EQ(show(daemon), 0);
  EXPECT_EQ(output_.out, entry_text("Success (0)", "ok\n") + "Error on recv\n");
}

TEST_F(ShowLogfile, EntryCutShortInsideIsNotPrinted) {
  StreamingDaemon daemon({log_message(1, 1, 0, 10, "12345")});
  EXPECT_EQ(show(daemon), 0);
  // The entry ends with the failed receive; it was the last, so the listing ends too.
  EXPECT_EQ(output_.out, "Error on recv\n");
}

TEST_F(ShowLogfile, PartsThatOverrunTheTotalOrTheMessageAreRefused) {
  Bytes overrun = log_message(2, 1, 0, 6, "abc");
  Bytes lying = log_message(2, 1, 0, 6, "abc");
  sch_wire_put_u32(lying.data() + 124, 50);  // declares more than it carries
  StreamingDaemon daemon({log_message(2, 1, 0, 4, "ab"), overrun, lying, log_message(2, 2, 0, 2, "ok")});
  EXPECT_EQ(show(daemon), 0);
  // The second message would put 3 bytes where 2 remain: that entry is dropped; the next message
  // declares a part beyond its bytes and ends the listing.
  EXPECT_EQ(output_.out, "Error cmi parsing\nError cmi parsing\n");
}

TEST_F(ShowLogfile, ATotalNoLogFileCanHoldIsRefusedAndTheNextEntryPrints) {
  StreamingDaemon daemon({log_message(2, 1, 0, (65536 << 10) + 1, "ab"), log_message(2, 2, 0, 3, "ok\n")});
  EXPECT_EQ(show(daemon), 0);
  EXPECT_EQ(output_.out, "Error cmi parsing\n" + entry_text("Success (0)", "ok\n"));
}

TEST_F(ShowLogfile, SendFailureIsReportedAndReturned) {
  cmi_session *session = cmi_session_open("/tmp/schedcli-no-such-dir/schedd.sock");
  Command command(session, kLocalUser, {});
  int result = 0;
  output_ = capture([&] { result = sch_cli_show_logfile(&command.context); });
  cmi_session_close(session);
  EXPECT_EQ(uint32_t(result), CMI_ERR_NO_DAEMON);
  EXPECT_EQ(output_.out, "");
  EXPECT_EQ(output_.err, error_line("Error", CMI_ERR_NO_DAEMON));
}

}  // namespace

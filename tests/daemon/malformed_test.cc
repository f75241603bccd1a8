// Requests that do not hold up, through the platform's client and raw on the socket: each gets an
// error, nothing of it is applied, and the daemon goes on serving.
#include <sys/socket.h>
#include <sys/un.h>

#include "daemon_testing.h"

namespace {

using namespace daemon_testing;

class DaemonMalformed : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  void TearDown() override {
    if (raw_ >= 0) close(raw_);
    DaemonTest::TearDown();
  }

  // A message as the transport frames it: version, kind, 0, service, opcode, status, token, length.
  static Bytes frame(uint8_t version, uint8_t kind, uint32_t token, const Bytes &payload) {
    Bytes bytes(CMI_HEADER_SIZE);
    bytes[0] = version;
    bytes[1] = kind;
    sch_wire_put_u32(&bytes[4], SCH_SERVICE_CONFIG);
    sch_wire_put_u32(&bytes[8], SCH_OPCODE_CONFIG);
    sch_wire_put_u32(&bytes[16], token);
    sch_wire_put_u32(&bytes[20], static_cast<uint32_t>(payload.size()));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
  }
  void connect_raw() {
    raw_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    int buffer = 4 * CMI_MAX_MESSAGE;
    timeval timeout{5, 0};
    setsockopt(raw_, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    setsockopt(raw_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    sockaddr_un address{AF_UNIX, {}};
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socket_path().c_str());
    ASSERT_EQ(connect(raw_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << std::strerror(errno);
  }
  // Sends raw bytes; the reply's status and token.
  std::pair<uint32_t, uint32_t> exchange(const Bytes &bytes) {
    EXPECT_EQ(send(raw_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    uint8_t reply[CMI_HEADER_SIZE];
    EXPECT_EQ(recv(raw_, reply, sizeof reply, 0), static_cast<ssize_t>(sizeof reply)) << std::strerror(errno);
    return {sch_wire_get_u32(reply + 12), sch_wire_get_u32(reply + 16)};
  }

  int raw_ = -1;
};

TEST_F(DaemonMalformed, RecordsThatDisagreeWithTheirTypeAreRefused) {
  Bytes create = job_request(SCH_REQ_CREATE_JOB, "j");
  Bytes longer = create, shorter(create.begin(), create.end() - 1), wrong_length_word = create;
  longer.push_back(0);
  sch_wire_put_u32(&longer[4], static_cast<uint32_t>(longer.size() - 8));
  sch_wire_put_u32(&shorter[4], static_cast<uint32_t>(shorter.size() - 8));
  sch_wire_put_u32(&wrong_length_word[4], 40);
  Bytes text_length_disagrees = job_request(SCH_REQ_DEFINE_JOB, "j", "abc");
  sch_wire_put_u32(&text_length_disagrees[52], 4);

  for (const auto &[request, status] : std::vector<std::pair<Bytes, uint32_t>>{
           {{}, SCH_STATUS_BAD_REQUEST},
           {Bytes(7, 0), SCH_STATUS_BAD_REQUEST},
           {header_request(99), SCH_STATUS_UNKNOWN_REQUEST},
           {header_request(21), SCH_STATUS_UNKNOWN_REQUEST},
           {header_request(SCH_REQ_LOG_SIZE), SCH_STATUS_BAD_REQUEST},
           {longer, SCH_STATUS_BAD_REQUEST},
           {shorter, SCH_STATUS_BAD_REQUEST},
           {wrong_length_word, SCH_STATUS_BAD_REQUEST},
           {text_length_disagrees, SCH_STATUS_BAD_REQUEST},
           // Names that fill their field leave no room for the terminator.
           {job_request(SCH_REQ_CREATE_JOB, std::string(32, 'a')), SCH_STATUS_BAD_REQUEST},
           {schedule_request(SCH_REQ_CREATE_SCHEDULE, std::string(32, 's')), SCH_STATUS_BAD_REQUEST},
           {email_request(SCH_EMAIL_ADD, "s", std::string(64, 'e')), SCH_STATUS_BAD_REQUEST},
           {credential_request(SCH_CREDENTIAL_FETCH, std::string(128, 'u')), SCH_STATUS_BAD_REQUEST}}) {
    Answer answer = configure(request);
    EXPECT_TRUE(answered(answer, status)) << request.size() << " bytes";
    EXPECT_TRUE(answer.payload.empty());
  }
  // The right record on the wrong service or opcode.
  EXPECT_TRUE(answered(display(create), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(configure(display_request(SCH_REQ_GET_JOBS, "", -1)), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(display(header_request(SCH_REQ_GET_USER_CONFIG)), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(display(display_request(SCH_REQ_GET_JOBS, std::string(32, 'j'), -1)), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(job_names().empty());
  EXPECT_TRUE(answered(configure(create), 0));
}

TEST_F(DaemonMalformed, BrokenMessagesOnOneConnectionAreAnsweredAndItStaysUsable) {
  connect_raw();
  Bytes request = job_request(SCH_REQ_CREATE_JOB, "raw");
  Bytes cut_short = frame(1, 1, 12, request);
  cut_short.pop_back();
  EXPECT_EQ(exchange(Bytes(5, 0xff)), std::make_pair(CMI_ERR_SHORT, 0u));
  EXPECT_EQ(exchange(frame(9, 1, 11, request)).first, CMI_ERR_VERSION);
  EXPECT_EQ(exchange(cut_short), std::make_pair(CMI_ERR_LENGTH, 12u));
  EXPECT_EQ(exchange(frame(1, 2, 13, request)), std::make_pair(CMI_ERR_KIND, 13u)) << "a reply sent to the daemon";
  EXPECT_EQ(exchange(Bytes(CMI_MAX_MESSAGE + 1, 1)).first, CMI_ERR_TOO_LARGE);
  EXPECT_EQ(exchange(frame(1, 1, 14, request)), std::make_pair(0u, 14u));
  EXPECT_EQ(exchange(frame(1, 1, 15, request)), std::make_pair(SCH_STATUS_EXISTS, 15u));
}

TEST_F(DaemonMalformed, ClientsThatGoAwayEarlyAreForgotten) {
  // More than the daemon keeps open at once: the rest wait their turn rather than being turned away.
  for (int i = 0; i < 100; i++) {
    connect_raw();
    Bytes request = frame(1, 1, 1, job_request(SCH_REQ_CREATE_JOB, "x" + std::to_string(i)));
    if (i % 2) {
      ASSERT_EQ(send(raw_, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    }
    close(raw_);
    raw_ = -1;
  }
  EXPECT_TRUE(answered(configure(job_request(SCH_REQ_CREATE_JOB, "alive")), 0));
  EXPECT_EQ(job_names().size(), 51u) << "every request sent was served, though nobody read the reply";
}

}  // namespace

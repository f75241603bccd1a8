// Test support: a client session on a daemon's socket that sends wire images and hands back each
// reply's status and payload.
#ifndef SCHEDCLI_TESTS_SUPPORT_WIRE_CLIENT_H
#define SCHEDCLI_TESTS_SUPPORT_WIRE_CLIENT_H

#include <cstdlib>
#include <string>

#include "schedcli/platform/acfg.h"
#include "schedcli/platform/cmi.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/status.h"
#include "support/wire_images.h"

namespace wire_images {

struct Answer {
  uint32_t status = 0;
  Bytes payload;
};

inline testing::AssertionResult answered(const Answer &answer, uint32_t expected) {
  if (answer.status == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << std::hex << "0x" << answer.status << " (" << syserr2str(answer.status)
                                     << ") instead of 0x" << expected << " (" << syserr2str(expected) << ")";
}

class WireClient {
 public:
  explicit WireClient(const std::string &socket_path) : session_(cmi_session_open(socket_path.c_str())) {
    cmi_session_timeout_set(session_, 5000);
  }
  ~WireClient() { cmi_session_close(session_); }
  WireClient(const WireClient &) = delete;
  WireClient &operator=(const WireClient &) = delete;

  Answer call(uint32_t service, uint32_t opcode, const Bytes &request) {
    void *reply = nullptr;
    auto length = static_cast<uint32_t>(request.size());
    Answer answer;
    // The same unused arguments as the shell's handlers pass.
    answer.status =
        cmi_req_resp(service, opcode, request.data(), &reply, &length, "", nullptr, SCH_CMI_FLAGS, session_, 0);
    if (reply) answer.payload.assign(static_cast<uint8_t *>(reply), static_cast<uint8_t *>(reply) + length);
    std::free(reply);
    return answer;
  }
  Answer configure(const Bytes &request) { return call(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request); }
  Answer display(const Bytes &request) { return call(SCH_SERVICE_DISPLAY, SCH_OPCODE_DISPLAY, request); }

  // The running configuration text; a failed request fails the test and gives "".
  std::string running_config() {
    char *text = nullptr;
    size_t length = 0;
    EXPECT_TRUE(answered({acfg_request_config_text(session_, ACFG_CFG_RUNNING, 0, &text, &length), {}}, 0));
    std::string result = text ? std::string(text, length) : "";
    std::free(text);
    return result;
  }

  // Every job name the cursor walk hands out, in order.
  Names job_names() {
    Names names;
    for (int32_t cursor = -1; names.size() <= SCH_MAX_JOBS;) {
      Answer answer = display(display_request(SCH_REQ_GET_JOBS, "", cursor));
      EXPECT_TRUE(answered(answer, 0));
      if (answer.payload.empty()) break;
      JobEntry job = decode_job(answer.payload);
      cursor = static_cast<int32_t>(job.cursor);
      names.push_back(job.name);
    }
    return names;
  }

 private:
  cmi_session *session_;
};

}  // namespace wire_images

#endif

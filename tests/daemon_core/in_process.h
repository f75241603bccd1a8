// Test support: the daemon in this process on a temporary directory, asked directly (no socket),
// with the configuration text and every record of the running stores at hand for comparison.
#ifndef SCHEDCLI_TESTS_DAEMON_CORE_IN_PROCESS_H
#define SCHEDCLI_TESTS_DAEMON_CORE_IN_PROCESS_H

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "core/daemon.h"
#include "pss/store_walk.h"
#include "schedcli/diag.h"
#include "schedcli/platform/acfg.h"
#include "schedcli/platform/feature.h"
#include "schedcli/platform/mtrack.h"
#include "schedcli/platform/pss.h"
#include "schedcli/platform/syserr.h"
#include "schedcli/pss.h"
#include "support/temp_dir.h"
#include "support/wire_images.h"

namespace in_process {

using namespace wire_images;

inline const schedd::Caller kRoot{0, "root"};

// Every record of a store as key bytes -> value bytes.
using StoreImage = std::map<std::string, std::string>;

inline StoreImage image_of(pss2_handle store) {
  StoreImage image;
  sch::pss::walk_store(store, [&](pss2_datum key) {
    uint32_t status = 0;
    pss2_datum value = pss2_getvalue(store, &status);
    const auto *key_bytes = static_cast<const char *>(key.data);
    const auto *value_bytes = static_cast<const char *>(value.data);
    image[std::string(key_bytes, key.length)] = status == 0 ? std::string(value_bytes, value.length) : "<unreadable>";
    return true;
  });
  return image;
}

// What an operator can see and what a restart would find.
struct Snapshot {
  std::string text;
  StoreImage running;
  StoreImage results;
  bool operator==(const Snapshot &) const = default;
};

class InProcessDaemon : public testing::Test {
 public:
  schedd::Reply call(uint32_t service, uint32_t opcode, const Bytes &request, const schedd::Caller &caller = kRoot) {
    return daemon_->handle(service, opcode, request, caller);
  }
  uint32_t configure(const Bytes &request, const schedd::Caller &caller = kRoot) {
    return call(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, request, caller).status;
  }
  // A byte, then a name and its terminator: the feature and logging level requests.
  static Bytes named(uint8_t first, const std::string &name) {
    Bytes payload{first};
    payload.insert(payload.end(), name.begin(), name.end());
    payload.push_back(0);
    return payload;
  }
  uint32_t feature(uint32_t action) {
    return call(FM_SERVICE, action, named(static_cast<uint8_t>(action), "scheduler")).status;
  }

 protected:
  void TearDown() override {
    pss2_fault_clear_all();
    stop();
  }

  schedd::Options options() const {
    schedd::Options options;
    options.state_dir = directory_->file("s");
    options.runtime_dir = directory_->file("r");
    return options;
  }

  // Starts a daemon; false (with the reason in `error_`) when start-up refused.
  bool start(bool enable_feature = true, bool standby = false) {
    schedd::Options chosen = options();
    chosen.enable_feature = enable_feature;
    chosen.standby = standby;
    daemon_ = std::make_unique<schedd::Daemon>(chosen, clock_);
    error_.clear();
    return daemon_->start(&error_, parts_);
  }

  // Stops the daemon; every tracked block it held must be back.
  void stop() {
    if (!daemon_) return;
    daemon_.reset();
    EXPECT_EQ(mtrack_live_blocks(SCH_MTRACK_IDENTITY), 0u) << "tracked blocks left behind";
  }

  // Stops and starts again on the same directories, the feature as stored; `standby` as the option says.
  void restart(bool standby = false) {
    stop();
    ASSERT_TRUE(start(false, standby)) << error_;
  }

  // A job with its text (each line ended as the shell sends it), and a schedule running `jobs`.
  void make_job(const std::string &name, const std::string &text) {
    ASSERT_EQ(configure(job_request(SCH_REQ_CREATE_JOB, name)), 0u);
    ASSERT_EQ(configure(job_request(SCH_REQ_DEFINE_JOB, name, text)), 0u);
  }
  void make_schedule(const std::string &name, uint32_t code, const tminfo &time, const Names &jobs) {
    ASSERT_EQ(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, name)), 0u);
    for (const std::string &job : jobs) ASSERT_EQ(configure(assign_request(name, job)), 0u);
    ASSERT_EQ(configure(modify_request(name, code, time)), 0u);
  }

  // The password a credential fetch hands the runner; "?" when the fetch is refused.
  std::string password_of(const std::string &user, const schedd::Caller &caller) {
    Bytes fetched = call(SCH_SERVICE_CONFIG, SCH_OPCODE_CONFIG, credential_request(SCH_CREDENTIAL_FETCH, user), caller).payload;
    if (fetched.size() != 256) return "?";
    const char *password = reinterpret_cast<const char *>(fetched.data()) + 128;
    return std::string(password, strnlen(password, 128));
  }
  uint32_t copy_to_startup() { return call(ACFG_SERVICE, ACFG_OP_COPY_STARTUP, Bytes{0}).status; }

  std::string config_text(uint8_t which) {
    schedd::Reply reply = call(ACFG_SERVICE, ACFG_OP_CONFIG_TEXT, Bytes{which, 0});
    EXPECT_EQ(reply.status, 0u) << syserr2str(reply.status);
    return std::string(reply.payload.begin(), reply.payload.end());
  }
  std::string running_text() { return config_text(ACFG_CFG_RUNNING); }
  std::string startup_text() { return config_text(ACFG_CFG_STARTUP); }

  Snapshot snapshot() { return {running_text(), image_of(pss_running), image_of(pss_running_db)}; }

  // A configuration with something of every kind, schedules not created in name order.
  void configure_everything() {
    make_job("backup", std::string(2499, 'b') + "\n");
    make_job("rotate", "logrotate -f /etc/rotate.conf\n");
    make_schedule("zeta", SCH_MODIFY_DAILY, daily(2, 30), {"backup"});
    make_schedule("alpha", SCH_MODIFY_DAILY, daily(2, 30), {"backup", "rotate"});
    for (const char *name : {"zeta", "alpha"}) {
      ASSERT_EQ(configure(email_request(SCH_EMAIL_ADD, name, "ops@example.com")), 0u);
    }
    ASSERT_EQ(configure(credential_request(SCH_CREDENTIAL_STORE, "alice", "7$secret")), 0u);
    ASSERT_EQ(configure(log_file_request(SCH_REQ_LOG_SIZE, false, "", 4096)), 0u);
    sch_email_transport_conf conf{};
    std::strcpy(conf.from, "scheduler@example.com");
    ASSERT_EQ(configure(transport_request(SCH_REQ_EMAIL_FROM, conf)), 0u);
  }

  // Starts over in a new directory, with no daemon.
  void start_afresh() {
    stop();
    directory_ = std::make_unique<sch::testing::TempDir>();
  }

  std::unique_ptr<sch::testing::TempDir> directory_ = std::make_unique<sch::testing::TempDir>();
  schedd::ManualClock clock_{1'800'000'000};
  // What start() brings up: no socket, and no runner unless a test wants one.
  schedd::StartParts parts_{.socket = false, .runner = false, .wall_timer = false};
  std::unique_ptr<schedd::Daemon> daemon_;
  std::string error_;
};

}  // namespace in_process

#endif

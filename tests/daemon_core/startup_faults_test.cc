// Start-up under store faults. A stateless restart either comes up with the whole startup
// configuration durable in the running store, or refuses to serve; a start after a refused one
// takes the startup configuration again rather than the part the refused one wrote.
#include "daemon_core/in_process.h"

namespace in_process {
namespace {

class StartupFaults : public InProcessDaemon {
 protected:
  // A startup configuration of every kind, schedules created out of name order.
  void SetUp() override {
    ASSERT_TRUE(start()) << error_;
    ASSERT_NO_FATAL_FAILURE(configure_everything());
    ASSERT_EQ(copy_to_startup(), 0u);
    saved_ = running_text();
    stop();
  }

  std::string saved_;
};

TEST_F(StartupFaults, StatelessRestartIsWholeOrRefused) {
  for (uint64_t nth = 1;; nth++) {
    ASSERT_LT(nth, 200u) << "start-up never succeeded";
    std::filesystem::remove_all(options().runtime_dir);
    pss2_fault_set(PSS2_FAULT_STORE, nth, PSS2_ERR_FULL, 0);
    bool started = start(false);
    pss2_fault_clear_all();
    if (started) {
      EXPECT_EQ(running_text(), saved_);
      break;
    }
    EXPECT_NE(error_.find("configuration"), std::string::npos) << error_;
    stop();
    // The next start must not continue from what the refused one left in the running store.
    ASSERT_TRUE(start(false)) << "after failure " << nth << ": " << error_;
    EXPECT_EQ(running_text(), saved_) << "after failure " << nth;
    stop();
  }
  // And the running store holds all of it: a crash restart finds the same.
  stop();
  ASSERT_TRUE(start(false)) << error_;
  EXPECT_EQ(running_text(), saved_);
}

TEST_F(StartupFaults, StartupTextListsSchedulesAsTheRunningTextDoes) {
  ASSERT_TRUE(start(false)) << error_;
  EXPECT_EQ(startup_text(), running_text());
  EXPECT_LT(saved_.find("schedule name alpha"), saved_.find("schedule name zeta")) << "name order";
}

// Reads that fail while the running store is restored: the daemon serves everything or refuses.
// Value reads are failed for the schedule, job and condition records, which the start-up checks;
// a log-file or transport record that cannot be read leaves its defaults.
TEST_F(StartupFaults, NormalRestartUnderReadFaultsServesAllOrNothing) {
  ASSERT_TRUE(start(false)) << error_;
  stop();
  constexpr uint64_t kCheckedValues = 9;  // 2 schedules, 2 job headers with 4 fragments, the condition
  for (pss2_fault_operation operation : {PSS2_FAULT_OPEN, PSS2_FAULT_MOVE, PSS2_FAULT_GETKEY, PSS2_FAULT_GETVALUE}) {
    for (uint64_t nth = 1;; nth++) {
      ASSERT_LT(nth, 200u);
      if (operation == PSS2_FAULT_GETVALUE && nth > kCheckedValues) break;
      pss2_fault_set(operation, nth, PSS2_ERR_IO, 0);
      bool started = start(false);
      pss2_fault_clear_all();
      if (started) {
        EXPECT_EQ(running_text(), saved_) << "operation " << operation << " failure " << nth;
        stop();
        if (!HasFailure()) break;
        return;
      }
      EXPECT_NE(error_.find("configuration"), std::string::npos) << error_;
      stop();
    }
  }
}

}  // namespace
}  // namespace in_process

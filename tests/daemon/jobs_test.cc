// Jobs: creation, command text, deletion, and the records they leave in the stores.
#include "daemon_testing.h"
#include "schedcli/pss.h"

namespace {

using namespace daemon_testing;

class DaemonJobs : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  Answer create(const std::string &name) { return configure(job_request(SCH_REQ_CREATE_JOB, name)); }
  Answer define(const std::string &name, const std::string &text) {
    return configure(job_request(SCH_REQ_DEFINE_JOB, name, text));
  }
  Answer remove(const std::string &name) { return configure(job_request(SCH_REQ_DELETE_JOB, name)); }

  // "type.sequence" of every record named `name` in one of the stopped daemon's stores.
  Names stored_keys(const std::string &store, const std::string &name) {
    Names keys;
    uint32_t status = 0;
    pss2_handle handle = pss2_open((runtime_dir_ + "/" + store).c_str(), PSS2_MODE_READ, 0, 0, nullptr, &status);
    for (uint32_t at = pss2_move2location(&handle, 0, PSS2_LOCATION_FIRST, nullptr); at == 0;
         at = pss2_move2location(&handle, 0, PSS2_LOCATION_NEXT, nullptr)) {
      const auto *key = static_cast<const uint8_t *>(pss2_getkey(handle, &status).data);
      const char *key_name = reinterpret_cast<const char *>(key + 8);
      if (std::string(key_name, strnlen(key_name, 32)) != name) continue;
      keys.push_back(std::to_string(sch_wire_get_u32(key)) + "." + std::to_string(sch_wire_get_u32(key + 4)));
    }
    pss2_close(handle);
    return keys;
  }
};

TEST_F(DaemonJobs, NamesAreTakenOnceAndMustBeCommandWords) {
  EXPECT_TRUE(answered(create("backup"), 0));
  EXPECT_TRUE(answered(create("backup"), SCH_STATUS_EXISTS));
  EXPECT_TRUE(answered(create(std::string(31, 'n')), 0)) << "the longest name the field holds";
  for (std::string bad : {"", "_lead", "-lead", "a.b", "a b"}) {
    EXPECT_TRUE(answered(create(bad), SCH_STATUS_BAD_REQUEST)) << "'" << bad << "'";
  }
  EXPECT_EQ(job_names(), (Names{"backup", std::string(31, 'n')}));
}

TEST_F(DaemonJobs, TextIsReplacedWholeAcrossFragmentBoundaries) {
  ASSERT_TRUE(answered(create("j"), 0));
  for (size_t length : {1024u, 1025u, 2049u, 8182u, 3u, 0u}) {
    std::string text(length, 'a');
    for (size_t i = 0; i < length; i += 7) text[i] = static_cast<char>('0' + i % 10);
    if (length > 0) text.back() = '\n';  // the last line ends, as every stored job line does
    ASSERT_TRUE(answered(define("j", text), 0)) << length;
    EXPECT_EQ(job_text("j"), text) << length;
  }
  EXPECT_TRUE(answered(define("j", std::string(8182, 'a') + "\n"), SCH_STATUS_TEXT_TOO_LONG));
  EXPECT_TRUE(answered(define("j", std::string("a\0b", 3)), SCH_STATUS_BAD_REQUEST));
  EXPECT_TRUE(answered(define("nope", "x\n"), SCH_STATUS_NO_SUCH_JOB));
  EXPECT_EQ(job_text("j"), "") << "refused texts change nothing";
}

// Text the shell could not have gathered would not survive the configuration text being pasted
// back: an unended last line, a line ending in a carriage return, a line reading end-job.
TEST_F(DaemonJobs, TextMustBeLinesAsTheShellGathersThem) {
  ASSERT_TRUE(answered(create("j"), 0));
  for (std::string bad : {"echo done", "a\nb", "a\r\n", "end-job\n", "a\n  end-job\t\nb\n", " ?\n"}) {
    EXPECT_TRUE(answered(define("j", bad), SCH_STATUS_BAD_TEXT)) << "'" << bad << "'";
  }
  EXPECT_EQ(job_text("j"), "");
  for (std::string good : {"a\tb\n", "end-jobs\n\n", "echo end-job\n", "\n", "echo ?\n"}) {
    EXPECT_TRUE(answered(define("j", good), 0)) << "'" << good << "'";
    EXPECT_EQ(job_text("j"), good);
  }
}

TEST_F(DaemonJobs, ShorterTextLeavesNoStaleFragmentRecords) {
  ASSERT_TRUE(answered(create("j"), 0));
  ASSERT_TRUE(answered(define("j", std::string(2999, 'x') + "\n"), 0));
  ASSERT_TRUE(answered(define("j", "short\n"), 0));
  ASSERT_EQ(stop(), 0);
  EXPECT_EQ(stored_keys("scheduler_runtime", "j"), (Names{"1.0", "1.1"}));
  start_or_fail();
  EXPECT_EQ(job_text("j"), "short\n");
}

TEST_F(DaemonJobs, DeleteTakesTheJobOffEveryScheduleAndItsResultsOffTheStore) {
  for (std::string job : {"keep", "gone"}) ASSERT_TRUE(answered(create(job), 0));
  for (std::string name : {"s1", "s2"}) {
    ASSERT_TRUE(answered(configure(schedule_request(SCH_REQ_CREATE_SCHEDULE, name)), 0));
    ASSERT_TRUE(answered(configure(assign_request(name, "gone")), 0));
    ASSERT_TRUE(answered(configure(assign_request(name, "keep")), 0));
  }
  // A result as the job runner stores it: job 1 ran for s1 and exited with 3.
  ASSERT_EQ(stop(), 0);
  uint32_t status = 0;
  pss2_handle results =
      pss2_open((runtime_dir_ + "/scheduler_runtime_database").c_str(), PSS2_MODE_UPDATE, 0, 0, nullptr, &status);
  sch_runtime_job_status result{"s1", 1, {3u << 8, 0}};
  ASSERT_EQ(sch_save_runtime_job_status_entry_to_pss(results, &result), 0);
  pss2_close(results);
  start_or_fail();
  EXPECT_EQ(schedule("s1").jobs.at(1).status, 3u << 8);
  EXPECT_EQ(schedule("s2").jobs.at(1).status, 0u) << "ran for s1 only";

  ASSERT_TRUE(answered(remove("gone"), 0));
  ASSERT_TRUE(answered(create("newcomer"), 0)) << "takes the freed id, and none of the old results";
  ASSERT_EQ(stop(), 0);
  EXPECT_TRUE(stored_keys("scheduler_runtime", "gone").empty());
  EXPECT_TRUE(stored_keys("scheduler_runtime_database", "s1").empty());
  start_or_fail();
  for (std::string name : {"s1", "s2"}) EXPECT_EQ(schedule(name).job_names(), Names{"keep"}) << name;
}

}  // namespace

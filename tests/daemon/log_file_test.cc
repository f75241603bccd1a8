// The run log: its size, its name (the real file moves with it) and clearing it.
#include "daemon_testing.h"
#include "schedcli/pss.h"

namespace {

using namespace daemon_testing;

class DaemonLogFile : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    start_enabled();
  }
  Answer resize(uint32_t bytes, bool no_form = false) {
    return configure(log_file_request(SCH_REQ_LOG_SIZE, no_form, "", bytes));
  }
  Answer rename(const std::string &path, bool no_form = false) {
    return configure(log_file_request(SCH_REQ_LOG_NAME, no_form, no_form ? "scheduler_circular_log.dat" : path));
  }
  uint32_t size() {
    Answer answer = display(header_request(SCH_REQ_GET_LOG_CONFIG));
    EXPECT_TRUE(answered(answer, 0));
    EXPECT_EQ(answer.payload.size(), 4u);
    return answer.payload.size() == 4 ? sch_wire_get_u32(answer.payload.data()) : 0;
  }
  std::string default_log() const { return state_dir_ + "/scheduler_circular_log.dat"; }

  // The log-file record of the stopped daemon's running store, in place of the one there.
  sch_log_file_record stored_record(const sch_log_file_record *replacement = nullptr) {
    uint32_t status = 0;
    pss2_handle store =
        pss2_open((runtime_dir_ + "/scheduler_runtime").c_str(), PSS2_MODE_UPDATE, 0, 0, nullptr, &status);
    EXPECT_EQ(status, 0u);
    if (replacement) {
      sch_log_file_record copy = *replacement;
      EXPECT_EQ(sch_save_log_file_entry_to_pss(store, &sch_log_file_key, &copy), 0);
    }
    sch_config_key key = sch_log_file_key;
    sch_hton_config_key(&key);
    pss2_datum key_datum{&key, SCH_KEY_SIZE};
    pss2_datum value = pss2_fetch(store, &key_datum, &status);
    sch_log_file_record record{};
    const auto *bytes = static_cast<const uint8_t *>(value.data);
    if (status == 0 && value.length == SCH_LOG_FILE_STORED_SIZE) {
      std::memcpy(record.writer_data, bytes, sizeof record.writer_data);
      record.size_limit = sch_wire_get_u32(bytes + 256);
      record.read_offset = sch_wire_get_u32(bytes + 260);
      record.count = sch_wire_get_u32(bytes + 268);
    }
    pss2_close(store);
    return record;
  }
};

TEST_F(DaemonLogFile, SizeIsKeptInBytesAndTheNoFormRestoresTheDefault) {
  EXPECT_EQ(size(), 16384u);
  EXPECT_TRUE(answered(resize(1024), 0));
  EXPECT_EQ(size(), 1024u);
  EXPECT_TRUE(answered(resize(1023), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(resize(0), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(resize(UINT32_MAX), SCH_STATUS_OUT_OF_RANGE));
  EXPECT_TRUE(answered(resize(10240), 0));
  ASSERT_EQ(stop(), 0);
  start_or_fail();
  EXPECT_EQ(size(), 10240u);
  // The no form means the default whatever size the record carries.
  EXPECT_TRUE(answered(resize(0, true), 0));
  EXPECT_EQ(size(), 16384u);
}

TEST_F(DaemonLogFile, RenameMovesTheFileAndNeverOverAnother) {
  ASSERT_TRUE(std::filesystem::exists(default_log())) << "created at the first start";
  write_file(default_log(), "entries");
  std::filesystem::create_directories(state_dir_ + "/logs");
  std::string target = state_dir_ + "/logs/run.log";

  EXPECT_TRUE(answered(rename(target), 0));
  EXPECT_FALSE(std::filesystem::exists(default_log()));
  EXPECT_EQ(read_file(target), "entries");

  write_file(state_dir_ + "/taken", "someone else's");
  EXPECT_TRUE(answered(rename("taken"), SCH_STATUS_LOG_FILE_EXISTS));
  EXPECT_EQ(read_file(state_dir_ + "/taken"), "someone else's");
  EXPECT_TRUE(answered(rename(state_dir_ + "/no/such/dir/x.log"), SCH_STATUS_LOG_FILE_DIRECTORY));
  EXPECT_TRUE(answered(rename("/tmp/x.log"), SCH_STATUS_LOG_FILE_PLACE));
  EXPECT_TRUE(answered(rename("logs/../../x.log"), SCH_STATUS_LOG_FILE_PLACE));
  std::filesystem::create_directory_symlink("/tmp", state_dir_ + "/elsewhere");
  EXPECT_TRUE(answered(rename("elsewhere/x.log"), SCH_STATUS_LOG_FILE_PLACE)) << "a link may not lead outside";
  EXPECT_TRUE(answered(rename(""), SCH_STATUS_BAD_REQUEST));
  EXPECT_EQ(read_file(target), "entries") << "refusals leave the file where it was";

  // A relative name lies under the state directory, and the name survives a restart.
  EXPECT_TRUE(answered(rename("logs/renamed.log"), 0));
  ASSERT_EQ(stop(), 0);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(stored_record().writer_data)), "logs/renamed.log");
  start_or_fail();
  EXPECT_TRUE(answered(rename(state_dir_ + "/logs/renamed.log"), 0)) << "already there: nothing to do";
  EXPECT_TRUE(answered(rename("", true), 0));
  EXPECT_EQ(read_file(default_log()), "entries");
  EXPECT_TRUE(answered(rename("", true), 0)) << "the no form can be repeated";
}

TEST_F(DaemonLogFile, ClearEmptiesTheFileAndForgetsItsEntries) {
  ASSERT_EQ(stop(), 0);
  sch_log_file_record record{};
  std::memcpy(record.writer_data, "scheduler_circular_log.dat", 27);
  record.size_limit = 4096;
  record.read_offset = 12;
  record.count = 3;
  stored_record(&record);
  write_file(default_log(), std::string(100, 'e'));
  start_or_fail();

  EXPECT_TRUE(answered(configure(log_file_request(SCH_REQ_LOG_CLEAR, false)), 0));
  EXPECT_EQ(std::filesystem::file_size(default_log()), 0u);
  EXPECT_EQ(size(), 4096u);
  ASSERT_EQ(stop(), 0);
  sch_log_file_record cleared = stored_record();
  EXPECT_EQ(cleared.read_offset, 0u);
  EXPECT_EQ(cleared.count, 0u);
  EXPECT_EQ(cleared.size_limit, 4096u);

  // A log file that has gone is made anew, by a clear as by a start.
  std::filesystem::remove(default_log());
  start_or_fail();
  EXPECT_TRUE(std::filesystem::exists(default_log()));
  std::filesystem::remove(default_log());
  EXPECT_TRUE(answered(configure(log_file_request(SCH_REQ_LOG_CLEAR, false)), 0));
  EXPECT_TRUE(std::filesystem::exists(default_log()));
}

}  // namespace

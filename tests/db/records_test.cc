// Stored images of every record kind: exact big-endian bytes once per format, the round trip, and
// values shorter or longer than the record.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "db/codec.h"
#include "schedcli/db.h"

namespace {

using sch::codec::ShortValue;
namespace codec = sch::codec;
using Bytes = std::vector<uint8_t>;

// Big-endian words, written out byte by byte apart from the codec.
Bytes be(std::initializer_list<uint32_t> words) {
  Bytes out;
  for (uint32_t w : words) out.insert(out.end(), {uint8_t(w >> 24), uint8_t(w >> 16), uint8_t(w >> 8), uint8_t(w)});
  return out;
}

// The text and its terminating NUL.
Bytes text(const char *s) { return Bytes(s, s + std::strlen(s) + 1); }

// The stored key bytes of the exported conversion are pinned by the byte-order check; the
// run-result key must convert the same way, both ways.
TEST(Keys, TheRunResultKeyConvertsLikeAConfigurationKey) {
  const sch_config_key key{SCH_REC_RUNTIME_STATUS, 0x01020304, "backup"};
  sch_config_key image = key, converted = key;
  sch_hton_config_key(&image);
  sch_hton_runtime_key(&converted);
  EXPECT_EQ(std::memcmp(&converted, &image, sizeof image), 0);
  sch_ntoh_runtime_key(&converted);
  EXPECT_EQ(std::memcmp(&converted, &key, sizeof key), 0);
}

// Jobs 0, 33 and 255; every word distinct, so that a word out of place shows.
const sch_schedule_record kSchedule{{0xA0A1A2A3, 0xB0B1B2B3}, {1u << 0, 1u << 1, 0, 0, 0, 0, 0, 1u << 31}, 0x40,
                                    tminfo{7, 2, 1, -1, 30, -1, -1, 1700000000, 1700003600, 0}, 0x84, 0x11223344, 3,
                                    "operator", 0x55667788, 9};
const sch_log_file_record kLog = [] {
  sch_log_file_record record{{0x77}, {0xD0}, 0x00014000, 12, 0xABCD, 5, {}};
  record.writer_state[259] = 0xE9;
  return record;
}();

// Each format: its size, the exact bytes at some offsets, and the round trip of a value longer
// than the record (cut to the record, nothing written past it).
TEST(Records, EveryFormatEncodesToItsExactBytesAndBack) {
  // A run result's key (type 255) sorts after every configuration type.
  sch_config_key key{SCH_REC_RUNTIME_STATUS, 0x01020304, "backup"};
  sch_job_header header{255, 0xCAFE, 8182};
  sch_condition_record enabled = 1;
  sch_email_transport_conf conf{"sched@example.net", {}, {}, "mail.example.net", 0x01020304, 587, "management"};
  const sch_schedule_email_entry email{"backup", 2, {{"a@example.net", 1}, {}, {}, {}, {}, {}, {}, {}, {}, {"z@example.net", 1}}};
  sch_user_config_record user{"alice", "c2VjcmV0", 0x10, 0x20};
  sch_runtime_job_status status{"backup", 4, {0xDEADBEEF, 2}};
  struct Format {
    const char *name;
    const codec::Layout &layout;
    const void *native;
    size_t size;
    std::vector<std::pair<size_t, Bytes>> pins;
  };
  const Format formats[] = {
      {"key", codec::kConfigKey, &key, 40, {{0, be({255, 0x01020304})}, {8, text("backup")}, {39, Bytes{0}}}},
      {"schedule", codec::kScheduleRecord, &kSchedule, 144,
       {{0, be({0xA0A1A2A3, 0xB0B1B2B3, 1, 2})}, {36, be({0x80000000, 0x40, 7, 2, 1, 0xFFFFFFFF})},
        {72, be({1700000000, 1700003600, 0, 0x84, 0x11223344, 3})}, {96, text("operator")},
        {136, be({0x55667788, 9})}}},
      {"job header", codec::kJobHeader, &header, 12, {{0, Bytes{0, 0, 0, 0xff, 0, 0, 0xca, 0xfe, 0, 0, 0x1f, 0xf6}}}},
      {"condition", codec::kCondition, &enabled, 4, {{0, Bytes{0, 0, 0, 1}}}},
      // Stored from byte 8 of the record on.
      {"log file", codec::kLogFileValue, kLog.writer_data, 532,
       {{0, Bytes{0xD0}}, {256, Bytes{0, 1, 0x40, 0, 0, 0, 0, 12, 0, 0, 0xab, 0xcd, 0, 0, 0, 5}}, {531, Bytes{0xE9}}}},
      {"from", codec::kEmailAddressValue, conf.from, 64, {{0, text("sched@example.net")}}},
      {"smtp server", codec::kSmtpServerValue, conf.smtp_server, 520,
       {{0, text("mail.example.net")}, {256, Bytes{1, 2, 3, 4, 0, 0, 0x02, 0x4b}}, {264, text("management")}}},
      // The count, then every slot's in-use word.
      {"schedule email", codec::kScheduleEmail, &email, 716,
       {{32, be({2})}, {36, text("a@example.net")}, {100, be({1})}, {36 + 9 * 68, text("z@example.net")}, {712, be({1})}}},
      {"user", codec::kUserRecord, &user, 264, {{0, text("alice")}, {128, text("c2VjcmV0")}, {256, be({0x10, 0x20})}}},
      {"run result", codec::kRunResultValue, status.result, 8, {{0, Bytes{0xde, 0xad, 0xbe, 0xef, 0, 0, 0, 2}}}},
  };
  for (const Format &f : formats) {
    ASSERT_EQ(f.layout.size, f.size) << f.name;
    Bytes image(f.size);
    codec::encode(f.layout, f.native, image.data());
    for (const auto &[offset, bytes] : f.pins) {
      EXPECT_EQ(Bytes(image.begin() + long(offset), image.begin() + long(offset + bytes.size())), bytes) << f.name << " at " << offset;
    }
    image.resize(f.size + 8, 0x5A);
    Bytes back(f.size + 8, 0xEE);
    codec::decode(f.layout, image, back.data(), ShortValue::kZeroFill);
    EXPECT_EQ(std::memcmp(back.data(), f.native, f.size), 0) << f.name;
    EXPECT_EQ(Bytes(back.begin() + long(f.size), back.end()), Bytes(8, 0xEE)) << f.name << ": decode wrote past the record";
  }
}

TEST(Records, AShortValueLeavesZerosOrKeepsMemoryAsTheCallerAsks) {
  Bytes image(SCH_SCHEDULE_RECORD_SIZE);
  codec::encode(codec::kScheduleRecord, &kSchedule, image.data());
  sch_schedule_record shortened;
  std::memset(&shortened, 0xEE, sizeof shortened);
  codec::decode(codec::kScheduleRecord, codec::bytes(image.data(), 12), &shortened, ShortValue::kZeroFill);
  EXPECT_EQ(shortened.jobs[0], 1u);
  EXPECT_EQ(shortened.jobs[1], 0u);
  EXPECT_EQ(shortened.execution_count, 0u);

  // A log-file value that ends inside the size limit: the limit's first two bytes change, the
  // rest of memory keeps what it had.
  sch_log_file_record log = kLog;
  const uint8_t stored_prefix[258] = {};
  codec::decode(codec::kLogFileValue, stored_prefix, log.writer_data, ShortValue::kKeepCurrent);
  EXPECT_EQ(log.writer_data[0], 0);
  EXPECT_EQ(log.size_limit, 0x4000u);  // the stored high half (zero) over the kept low half
  EXPECT_EQ(log.read_offset, 12u);
  EXPECT_EQ(log.count, 5u);
  EXPECT_EQ(log.writer_state[259], 0xE9);
  EXPECT_EQ(log.unstored[0], 0x77);
}

}  // namespace

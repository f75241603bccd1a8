// Stored images of every record kind: exact big-endian bytes both ways, and short or long values.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "db/codec.h"
#include "schedcli/db.h"

namespace {

using sch::codec::ShortValue;
namespace codec = sch::codec;

std::vector<uint8_t> encoded(const codec::Layout &layout, const void *native) {
  std::vector<uint8_t> out(layout.size);
  codec::encode(layout, native, out.data());
  return out;
}

std::vector<uint8_t> at(const std::vector<uint8_t> &image, size_t offset, size_t length) {
  return {image.begin() + static_cast<long>(offset), image.begin() + static_cast<long>(offset + length)};
}

using Bytes = std::vector<uint8_t>;

TEST(ConfigKey, ConvertsOnlyTheTwoWordsInPlace) {
  sch_config_key key{};
  key.type = SCH_REC_JOB;
  key.sequence = 0x01020304;
  std::memcpy(key.name, "backup", 6);
  sch_hton_config_key(&key);
  const auto *raw = reinterpret_cast<const uint8_t *>(&key);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{0, 0, 0, 1, 1, 2, 3, 4}));
  EXPECT_EQ(std::memcmp(raw + 8, "backup\0\0", 8), 0);
  sch_ntoh_config_key(&key);
  EXPECT_EQ(key.type, 1u);
  EXPECT_EQ(key.sequence, 0x01020304u);
}

TEST(ConfigKey, RuntimeKeyOfTypeStatusSortsAfterEveryConfigType) {
  sch_runtime_key key{SCH_REC_RUNTIME_STATUS, 7, "nightly"};
  sch_hton_runtime_key(&key);
  const auto *raw = reinterpret_cast<const uint8_t *>(&key);
  EXPECT_EQ(Bytes(raw, raw + 8), (Bytes{0, 0, 0, 0xff, 0, 0, 0, 7}));
  sch_ntoh_runtime_key(&key);
  EXPECT_EQ(key.type, 255u);
  EXPECT_EQ(key.sequence, 7u);
}

TEST(ConfigKey, ShortStoredKeyIsZeroFilled) {
  const uint8_t stored[6] = {0, 0, 0, 1, 0, 0};
  sch_config_key key;
  std::memset(&key, 0xAA, sizeof key);
  codec::decode(codec::kConfigKey, stored, &key, ShortValue::kZeroFill);
  EXPECT_EQ(key.type, 1u);
  EXPECT_EQ(key.sequence, 0u);
  for (char c : key.name) EXPECT_EQ(c, 0);
}

sch_schedule_record sample_schedule() {
  sch_schedule_record record{};
  record.reserved0[0] = 0xA0A1A2A3;
  record.reserved0[1] = 0xB0B1B2B3;
  record.jobs[0] = 1u << 0;    // job 0
  record.jobs[1] = 1u << 1;    // job 33
  record.jobs[7] = 1u << 31;   // job 255
  record.reserved40 = 0x40;
  record.time = tminfo{7, 2, 1, -1, 30, -1, -1, 1700000000, 1700003600, 0};
  record.reserved84 = 0x84;
  record.last_completion = 0x11223344;
  record.job_count = 3;
  std::strcpy(record.user, "operator");
  record.last_execution = 0x55667788;
  record.execution_count = 9;
  return record;
}

TEST(ScheduleRecord, ShortValueLeavesTheRestZeroAndLongValueIsCut) {
  sch_schedule_record record = sample_schedule();
  Bytes image = encoded(codec::kScheduleRecord, &record);

  sch_schedule_record shortened;
  std::memset(&shortened, 0xEE, sizeof shortened);
  codec::decode(codec::kScheduleRecord, codec::bytes(image.data(), 12), &shortened, ShortValue::kZeroFill);
  EXPECT_EQ(shortened.jobs[0], 1u);
  EXPECT_EQ(shortened.jobs[1], 0u);
  EXPECT_EQ(shortened.execution_count, 0u);

  image.resize(400, 0x5A);  // a stored value longer than the record
  sch_schedule_record guarded[2];
  std::memset(guarded, 0, sizeof guarded);
  codec::decode(codec::kScheduleRecord, image, &guarded[0], ShortValue::kZeroFill);
  EXPECT_EQ(std::memcmp(&guarded[0], &record, sizeof record), 0);
  EXPECT_EQ(guarded[1].reserved0[0], 0u) << "decode wrote past the record";
}

TEST(JobHeaderAndCondition, EncodeToTheirExactBytes) {
  sch_job_header header{255, 0xCAFE, 8182};
  EXPECT_EQ(encoded(codec::kJobHeader, &header), (Bytes{0, 0, 0, 0xff, 0, 0, 0xca, 0xfe, 0, 0, 0x1f, 0xf6}));
  sch_condition_record enabled = 1;
  EXPECT_EQ(encoded(codec::kCondition, &enabled), (Bytes{0, 0, 0, 1}));
}

TEST(LogFileRecord, StoresBytesEightOnAndKeepsMemoryBeyondAShortValue) {
  sch_log_file_record record{};
  record.unstored[0] = 0x77;
  record.writer_data[0] = 0xD0;
  record.size_limit = 0x00014000;
  record.read_offset = 12;
  record.reserved = 0xABCD;
  record.count = 5;
  record.writer_state[259] = 0xE9;
  Bytes image = encoded(codec::kLogFileValue, record.writer_data);
  ASSERT_EQ(image.size(), 532u);
  EXPECT_EQ(image[0], 0xD0);
  EXPECT_EQ(at(image, 256, 16), (Bytes{0, 1, 0x40, 0, 0, 0, 0, 12, 0, 0, 0xab, 0xcd, 0, 0, 0, 5}));
  EXPECT_EQ(image[531], 0xE9);

  // A stored value that ends inside the size limit: the limit's first two bytes change, the
  // rest of memory keeps what it had.
  const uint8_t stored_prefix[258] = {};
  sch_log_file_record target = record;
  codec::decode(codec::kLogFileValue, stored_prefix, target.writer_data, ShortValue::kKeepCurrent);
  EXPECT_EQ(target.writer_data[0], 0);
  EXPECT_EQ(target.size_limit, 0x4000u);  // the stored high half (zero) over the kept low half
  EXPECT_EQ(target.read_offset, 12u);
  EXPECT_EQ(target.count, 5u);
  EXPECT_EQ(target.writer_state[259], 0xE9);
  EXPECT_EQ(target.unstored[0], 0x77);
}

TEST(EmailTransport, SmtpServerValueCarriesServerWordsAndVrf) {
  sch_email_transport_conf conf{};
  std::strcpy(conf.from, "sched@example.net");
  std::strcpy(conf.smtp_server, "mail.example.net");
  conf.smtp_reserved = 0x01020304;
  conf.smtp_port = 587;
  std::strcpy(conf.vrf, "management");
  Bytes smtp = encoded(codec::kSmtpServerValue, conf.smtp_server);
  ASSERT_EQ(smtp.size(), 520u);
  EXPECT_EQ(std::memcmp(smtp.data(), "mail.example.net\0", 17), 0);
  EXPECT_EQ(at(smtp, 256, 8), (Bytes{1, 2, 3, 4, 0, 0, 0x02, 0x4b}));
  EXPECT_EQ(std::memcmp(smtp.data() + 264, "management\0", 11), 0);

  Bytes from = encoded(codec::kEmailAddressValue, conf.from);
  EXPECT_EQ(from.size(), 64u);
  EXPECT_EQ(std::memcmp(from.data(), conf.from, 64), 0);

  sch_email_transport_conf back{};
  codec::decode(codec::kSmtpServerValue, smtp, back.smtp_server, ShortValue::kZeroFill);
  EXPECT_EQ(back.smtp_port, 587u);
  EXPECT_STREQ(back.vrf, "management");
  EXPECT_EQ(back.from[0], 0) << "decoding the server record must not touch the addresses";
}

TEST(ScheduleEmailEntry, CountAndEveryInUseWordAreBigEndian) {
  sch_schedule_email_entry entry{};
  std::strcpy(entry.schedule, "backup");
  entry.count = 2;
  std::strcpy(entry.slots[0].address, "a@example.net");
  entry.slots[0].in_use = 1;
  std::strcpy(entry.slots[9].address, "z@example.net");
  entry.slots[9].in_use = 1;
  Bytes image = encoded(codec::kScheduleEmail, &entry);
  ASSERT_EQ(image.size(), 716u);
  EXPECT_EQ(at(image, 32, 4), (Bytes{0, 0, 0, 2}));
  EXPECT_EQ(std::memcmp(image.data() + 36, "a@example.net", 13), 0);
  EXPECT_EQ(at(image, 100, 4), (Bytes{0, 0, 0, 1}));
  EXPECT_EQ(std::memcmp(image.data() + 36 + 9 * 68, "z@example.net", 13), 0);
  EXPECT_EQ(at(image, 712, 4), (Bytes{0, 0, 0, 1}));
  sch_schedule_email_entry back;
  codec::decode(codec::kScheduleEmail, image, &back, ShortValue::kZeroFill);
  EXPECT_EQ(std::memcmp(&back, &entry, sizeof entry), 0);
}

TEST(UserRecordAndRunResult, EncodeTheirWords) {
  sch_user_config_record user{};
  std::strcpy(user.user, "alice");
  std::strcpy(user.password, "c2VjcmV0");
  user.word = 0x10;
  user.reserved = 0x20;
  Bytes image = encoded(codec::kUserRecord, &user);
  ASSERT_EQ(image.size(), 264u);
  EXPECT_EQ(std::memcmp(image.data() + 128, "c2VjcmV0", 8), 0);
  EXPECT_EQ(at(image, 256, 8), (Bytes{0, 0, 0, 0x10, 0, 0, 0, 0x20}));

  sch_runtime_job_status status{"backup", 4, {0xDEADBEEF, 2}};
  EXPECT_EQ(encoded(codec::kRunResultValue, status.result), (Bytes{0xde, 0xad, 0xbe, 0xef, 0, 0, 0, 2}));
}

}  // namespace

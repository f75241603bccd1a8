// Big-endian stored images of the scheduler's records, and the key conversion routines.
#include "db/codec.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "schedcli/keys.h"

namespace sch::codec {

namespace {

// Rewrites every word of an image in place, native <-> big-endian (the same swap both ways).
// Every run lies inside its image: the tables below are derived from the structures.
void convert_words(const Layout &layout, uint8_t *image, bool to_stored) {
  std::span<uint8_t> whole(image, layout.size);
  for (const WordRun &run : layout.words) bigendian::convert_words_at(whole, run.offset, run.count, to_stored);
}

constexpr WordRun kKeyWords[] = {SCH_WORD_RUN(sch_config_key, type, sequence)};
constexpr WordRun kScheduleWords[] = {
    SCH_WORD_RUN(sch_schedule_record, reserved0, reserved40), SCH_WORD_RUN(sch_schedule_record, time, time),
    SCH_WORD_RUN(sch_schedule_record, reserved84, job_count),
    SCH_WORD_RUN(sch_schedule_record, last_execution, execution_count)};
constexpr WordRun kHeaderWords[] = {SCH_WORD_RUN(sch_job_header, job_id, length)};
constexpr WordRun kOneWord[] = {word_run(0, sizeof(sch_condition_record))};
constexpr WordRun kLogFileWords[] = {
    SCH_WORD_RUN_FROM(SCH_LOG_FILE_STORED_OFFSET, sch_log_file_record, size_limit, count)};
constexpr WordRun kSmtpWords[] = {SCH_WORD_RUN_FROM(offsetof(sch_email_transport_conf, smtp_server),
                                                    sch_email_transport_conf, smtp_reserved, smtp_port)};
// The count, then each slot's in-use word.
constexpr auto kScheduleEmailWords = [] {
  std::array<WordRun, 1 + SCH_MAX_EMAILS> runs{SCH_WORD_RUN(sch_schedule_email_entry, count, count)};
  for (size_t i = 0; i < SCH_MAX_EMAILS; i++) {
    size_t in_use = offsetof(sch_schedule_email_entry, slots) + i * sizeof(sch_email_slot) + offsetof(sch_email_slot, in_use);
    runs[1 + i] = word_run(in_use, in_use + sizeof(uint32_t));
  }
  return runs;
}();
constexpr WordRun kUserWords[] = {SCH_WORD_RUN(sch_user_config_record, word, reserved)};
constexpr WordRun kRunResultWords[] = {
    SCH_WORD_RUN_FROM(offsetof(sch_runtime_job_status, result), sch_runtime_job_status, result, result)};
constexpr WordRun kTminfoWords[] = {SCH_WORD_RUN(tminfo, type, reserved)};

}  // namespace

const Layout kConfigKey{SCH_KEY_SIZE, kKeyWords};
const Layout kScheduleRecord{SCH_SCHEDULE_RECORD_SIZE, kScheduleWords};
const Layout kJobHeader{SCH_JOB_HEADER_SIZE, kHeaderWords};
const Layout kCondition{SCH_CONDITION_SIZE, kOneWord};
const Layout kLogFileValue{SCH_LOG_FILE_STORED_SIZE, kLogFileWords};
const Layout kEmailAddressValue{SCH_EMAIL_ADDRESS_RECORD_SIZE, {}};
const Layout kSmtpServerValue{SCH_SMTP_STORED_SIZE, kSmtpWords};
const Layout kScheduleEmail{SCH_SCHEDULE_EMAIL_SIZE, kScheduleEmailWords};
const Layout kUserRecord{SCH_USER_RECORD_SIZE, kUserWords};
const Layout kRunResultValue{SCH_RUN_RESULT_STORED_SIZE, kRunResultWords};
const Layout kTminfo{sizeof(tminfo), kTminfoWords};

void encode(const Layout &layout, const void *native, uint8_t *out) {
  std::memcpy(out, native, layout.size);
  convert_words(layout, out, true);
}

void decode(const Layout &layout, std::span<const uint8_t> stored, void *native, ShortValue rest) {
  uint8_t image[kMaxImage];
  if (layout.size > sizeof image) return;
  if (rest == ShortValue::kKeepCurrent) {
    encode(layout, native, image);
  } else {
    std::memset(image, 0, layout.size);
  }
  size_t length = std::min(stored.size(), layout.size);
  if (length) std::memcpy(image, stored.data(), length);
  convert_words(layout, image, false);
  std::memcpy(native, image, layout.size);
}

}  // namespace sch::codec

extern "C" {

// Keys are converted in place, so a key copy can go to the store and a key read back can be used.
// Only the two words swap; the name is bytes.
void sch_hton_config_key(sch_config_key *key) {
  if (key) sch::codec::convert_words(sch::codec::kConfigKey, reinterpret_cast<uint8_t *>(key), true);
}

void sch_ntoh_config_key(sch_config_key *key) {
  if (key) sch::codec::convert_words(sch::codec::kConfigKey, reinterpret_cast<uint8_t *>(key), false);
}

void sch_hton_runtime_key(sch_runtime_key *key) { sch_hton_config_key(key); }

void sch_ntoh_runtime_key(sch_runtime_key *key) { sch_ntoh_config_key(key); }

}  // extern "C"

// Big-endian stored images of the scheduler's records, and the key conversion routines.
#include "db/codec.h"

#include <algorithm>
#include <cstring>

#include "schedcli/keys.h"

namespace sch::codec {

void put_u32(uint8_t *out, uint32_t value) {
  out[0] = static_cast<uint8_t>(value >> 24);
  out[1] = static_cast<uint8_t>(value >> 16);
  out[2] = static_cast<uint8_t>(value >> 8);
  out[3] = static_cast<uint8_t>(value);
}

uint32_t get_u32(const uint8_t *in) {
  return static_cast<uint32_t>(in[0]) << 24 | static_cast<uint32_t>(in[1]) << 16 |
         static_cast<uint32_t>(in[2]) << 8 | static_cast<uint32_t>(in[3]);
}

namespace {

// Rewrites every word of an image in place, native <-> big-endian (the same swap both ways).
void convert_words(const Layout &layout, uint8_t *image, bool to_stored) {
  for (const WordRun &run : layout.words) {
    for (size_t i = 0; i < run.count; i++) {
      uint8_t *word = image + run.offset + 4 * i;
      if (to_stored) {
        uint32_t native;
        std::memcpy(&native, word, 4);
        put_u32(word, native);
      } else {
        uint32_t native = get_u32(word);
        std::memcpy(word, &native, 4);
      }
    }
  }
}

constexpr WordRun kKeyWords[] = {{0, 2}};
constexpr WordRun kScheduleWords[] = {{0, 11}, {44, 10}, {84, 3}, {136, 2}};
constexpr WordRun kHeaderWords[] = {{0, 3}};
constexpr WordRun kOneWord[] = {{0, 1}};
constexpr WordRun kLogFileWords[] = {{256, 4}};
constexpr WordRun kSmtpWords[] = {{256, 2}};
constexpr WordRun kScheduleEmailWords[] = {{32, 1},  {100, 1}, {168, 1}, {236, 1}, {304, 1}, {372, 1},
                                           {440, 1}, {508, 1}, {576, 1}, {644, 1}, {712, 1}};
constexpr WordRun kUserWords[] = {{256, 2}};
constexpr WordRun kRunResultWords[] = {{0, 2}};
constexpr WordRun kTminfoWords[] = {{0, 10}};

static_assert(offsetof(sch_schedule_email_entry, slots[9].in_use) == 712);

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

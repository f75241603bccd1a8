// The one place where byte order is handled: native records to their stored big-endian images and
// back. Every integer of a stored record is a 32-bit word; everything else is bytes.
#ifndef SCHEDCLI_LIB_DB_CODEC_H
#define SCHEDCLI_LIB_DB_CODEC_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "db/records.h"

namespace sch::codec {

void put_u32(uint8_t *out, uint32_t value);
uint32_t get_u32(const uint8_t *in);

// A stored image: its size and where its 32-bit words stand (runs of consecutive words); the
// bytes between them are copied unchanged.
struct WordRun {
  uint16_t offset;
  uint16_t count;
};
// The largest image any layout may describe.
inline constexpr size_t kMaxImage = 1024;

struct Layout {
  size_t size;
  std::span<const WordRun> words;
};

// What a decode does with the part of the image that a short stored value does not cover.
enum class ShortValue { kZeroFill, kKeepCurrent };

// native (layout.size bytes) -> out (layout.size bytes, big-endian words).
void encode(const Layout &layout, const void *native, uint8_t *out);
// At most layout.size bytes of `stored` -> native. A longer value is cut to the size.
void decode(const Layout &layout, std::span<const uint8_t> stored, void *native, ShortValue rest);

// Layouts of the stored images.
extern const Layout kConfigKey;
extern const Layout kScheduleRecord;
extern const Layout kJobHeader;
extern const Layout kCondition;
extern const Layout kLogFileValue;       // the 532 stored bytes, from offset 8 of the record
extern const Layout kEmailAddressValue;  // from and reply-to: 64 bytes of text
extern const Layout kSmtpServerValue;    // 520 bytes from the server name on
extern const Layout kScheduleEmail;
extern const Layout kUserRecord;
extern const Layout kRunResultValue;     // the 8-byte result
extern const Layout kTminfo;

inline std::span<const uint8_t> bytes(const void *data, size_t length) {
  return {static_cast<const uint8_t *>(data), length};
}

}  // namespace sch::codec

#endif

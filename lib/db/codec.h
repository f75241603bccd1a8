// The one place where byte order is handled: native records to their stored big-endian images and
// back. Every integer of a stored record is a 32-bit word; everything else is bytes.
#ifndef SCHEDCLI_LIB_DB_CODEC_H
#define SCHEDCLI_LIB_DB_CODEC_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "db/records.h"
#include "schedcli/platform/codec.h"

namespace sch::codec {

using bigendian::get_u32;
using bigendian::put_u32;

// A stored image: its size and where its 32-bit words stand (runs of consecutive words); the
// bytes between them are copied unchanged.
struct WordRun {
  uint16_t offset;
  uint16_t count;
};

// The run of words from byte `begin` up to byte `end` of a structure, counted from `base` (where
// the stored image starts). Used only in constant initializers, where a run that is not whole,
// aligned words is a compile error.
constexpr WordRun word_run(size_t begin, size_t end, size_t base = 0) {
  if (begin < base || end <= begin || (end - begin) % 4 != 0 || (begin - base) % 4 != 0 || end - base > 0xFFFF) {
    throw "a word run must cover whole aligned 32-bit words";
  }
  return WordRun{static_cast<uint16_t>(begin - base), static_cast<uint16_t>((end - begin) / 4)};
}

// The words of `type` from field `first` through field `last`, both included; the layout tables
// are derived from the structures with these, never counted by hand.
#define SCH_WORD_RUN(type, first, last) SCH_WORD_RUN_FROM(0, type, first, last)
#define SCH_WORD_RUN_FROM(base, type, first, last)                                                      \
  ::sch::codec::word_run(offsetof(type, first), offsetof(type, last) + sizeof(static_cast<type *>(nullptr)->last), \
                         (base))
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

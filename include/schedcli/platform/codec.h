/* The one big-endian codec of the product: every stored record, request, reply and message header
 * goes through these helpers, so that byte order is handled in this one place.
 *
 * C++ only (the hosts, the library and the platform are C++); header-only so that the hot paths
 * of the record codecs inline it. Two forms:
 *   - raw: put_u32 / get_u32 / put_u16 / get_u16 at a pointer the caller has already checked;
 *   - checked: *_at(span, offset, ...) return false, touching nothing, when the field does not lie
 *     wholly inside the span.
 * Names are fixed-width fields padded with NUL bytes; a name that fills its field is not
 * terminated inside it. */
#ifndef SCHEDCLI_PLATFORM_CODEC_H
#define SCHEDCLI_PLATFORM_CODEC_H

#ifdef __cplusplus

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace bigendian {

inline void put_u32(uint8_t *at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 24);
  at[1] = static_cast<uint8_t>(value >> 16);
  at[2] = static_cast<uint8_t>(value >> 8);
  at[3] = static_cast<uint8_t>(value);
}

inline uint32_t get_u32(const uint8_t *at) {
  return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
         static_cast<uint32_t>(at[2]) << 8 | static_cast<uint32_t>(at[3]);
}

inline void put_u16(uint8_t *at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

inline uint16_t get_u16(const uint8_t *at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }

// True when `width` bytes from `offset` lie inside a buffer of `size` bytes (no overflow).
constexpr bool fits(size_t size, size_t offset, size_t width) { return offset <= size && width <= size - offset; }

inline bool put_u32_at(std::span<uint8_t> out, size_t offset, uint32_t value) {
  if (!fits(out.size(), offset, 4)) return false;
  put_u32(out.data() + offset, value);
  return true;
}

inline bool get_u32_at(std::span<const uint8_t> in, size_t offset, uint32_t *value) {
  if (!fits(in.size(), offset, 4)) return false;
  *value = get_u32(in.data() + offset);
  return true;
}

inline bool put_u16_at(std::span<uint8_t> out, size_t offset, uint16_t value) {
  if (!fits(out.size(), offset, 2)) return false;
  put_u16(out.data() + offset, value);
  return true;
}

inline bool get_u16_at(std::span<const uint8_t> in, size_t offset, uint16_t *value) {
  if (!fits(in.size(), offset, 2)) return false;
  *value = get_u16(in.data() + offset);
  return true;
}

// Writes `name` into the `width`-byte field at `offset`, NUL-padded. False, touching nothing, when
// the field is outside `out` or the name does not fit with a terminating NUL.
inline bool put_name_at(std::span<uint8_t> out, size_t offset, size_t width, std::string_view name) {
  if (!fits(out.size(), offset, width) || name.size() >= width) return false;
  uint8_t *field = out.data() + offset;
  std::memcpy(field, name.data(), name.size());
  std::memset(field + name.size(), 0, width - name.size());
  return true;
}

// The text of the `width`-byte field at `offset`: up to its first NUL, or the whole field when it
// has none. False when the field is outside `in`.
inline bool get_name_at(std::span<const uint8_t> in, size_t offset, size_t width, std::string_view *name) {
  if (!fits(in.size(), offset, width)) return false;
  const char *field = reinterpret_cast<const char *>(in.data() + offset);
  const void *end = std::memchr(field, 0, width);
  *name = std::string_view(field, end ? static_cast<size_t>(static_cast<const char *>(end) - field) : width);
  return true;
}

// Converts `count` consecutive 32-bit words at `offset` of an image in place: native to stored
// (to_stored) or back. False, touching nothing, when the run is outside the image.
inline bool convert_words_at(std::span<uint8_t> image, size_t offset, size_t count, bool to_stored) {
  if (count > image.size() / 4 || !fits(image.size(), offset, 4 * count)) return false;
  for (size_t i = 0; i < count; i++) {
    uint8_t *word = image.data() + offset + 4 * i;
    uint32_t value;
    if (to_stored) {
      std::memcpy(&value, word, 4);
      put_u32(word, value);
    } else {
      value = get_u32(word);
      std::memcpy(word, &value, 4);
    }
  }
  return true;
}

}  // namespace bigendian

#endif /* __cplusplus */

#endif

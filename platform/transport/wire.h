// The message header on the daemon's socket and its codec: the only place that knows its bytes.
#ifndef SCHEDPLAT_TRANSPORT_WIRE_H
#define SCHEDPLAT_TRANSPORT_WIRE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "schedcli/platform/cmi.h"
#include "schedcli/platform/codec.h"

namespace cmi::wire {

// Layout (big-endian):
//   0 u8 version | 1 u8 kind | 2 u16 reserved (0) | 4 u32 service | 8 u32 opcode
//   12 u32 status | 16 u32 token | 20 u32 payload length | 24 payload
// These bytes travel between processes of different builds: never reorder or renumber.
struct Layout {
  uint8_t version;
  uint8_t kind;
  uint8_t reserved[2];
  uint8_t service[4];
  uint8_t opcode[4];
  uint8_t status[4];
  uint8_t token[4];
  uint8_t payload_length[4];
};
static_assert(sizeof(Layout) == CMI_HEADER_SIZE);
static_assert(offsetof(Layout, kind) == 1);
static_assert(offsetof(Layout, service) == 4);
static_assert(offsetof(Layout, opcode) == 8);
static_assert(offsetof(Layout, status) == 12);
static_assert(offsetof(Layout, token) == 16);
static_assert(offsetof(Layout, payload_length) == 20);

constexpr uint8_t kVersion = 1;

enum class Kind : uint8_t {
  request = 1,
  reply = 2,
  stream_part = 3,
  stream_end = 4,
};

struct Header {
  Kind kind = Kind::request;
  uint32_t service = 0;
  uint32_t opcode = 0;
  uint32_t status = 0;
  uint32_t token = 0;
  uint32_t payload_length = 0;
};

using bigendian::get_u32;
using bigendian::put_u32;

inline void encode(const Header &header, std::span<uint8_t, CMI_HEADER_SIZE> out) {
  uint8_t *bytes = out.data();
  bytes[offsetof(Layout, version)] = kVersion;
  bytes[offsetof(Layout, kind)] = static_cast<uint8_t>(header.kind);
  bytes[offsetof(Layout, reserved)] = 0;
  bytes[offsetof(Layout, reserved) + 1] = 0;
  put_u32(bytes + offsetof(Layout, service), header.service);
  put_u32(bytes + offsetof(Layout, opcode), header.opcode);
  put_u32(bytes + offsetof(Layout, status), header.status);
  put_u32(bytes + offsetof(Layout, token), header.token);
  put_u32(bytes + offsetof(Layout, payload_length), header.payload_length);
}

// Reads the header of a message of `message_size` bytes (header included) and checks it against
// that size. Returns 0 or CMI_ERR_SHORT / _VERSION / _KIND / _LENGTH. Apart from _SHORT and
// _VERSION, *header is filled even when the check fails, so that the sender can be answered.
inline uint32_t decode(std::span<const uint8_t> bytes, size_t message_size, Header *header) {
  if (bytes.size() < CMI_HEADER_SIZE || message_size < CMI_HEADER_SIZE) return CMI_ERR_SHORT;
  const uint8_t *at = bytes.data();
  if (at[offsetof(Layout, version)] != kVersion) return CMI_ERR_VERSION;
  uint8_t kind = at[offsetof(Layout, kind)];
  header->kind = static_cast<Kind>(kind);
  header->service = get_u32(at + offsetof(Layout, service));
  header->opcode = get_u32(at + offsetof(Layout, opcode));
  header->status = get_u32(at + offsetof(Layout, status));
  header->token = get_u32(at + offsetof(Layout, token));
  header->payload_length = get_u32(at + offsetof(Layout, payload_length));
  if (kind < static_cast<uint8_t>(Kind::request) || kind > static_cast<uint8_t>(Kind::stream_end)) {
    return CMI_ERR_KIND;
  }
  if (header->payload_length != message_size - CMI_HEADER_SIZE) return CMI_ERR_LENGTH;
  return 0;
}

}  // namespace cmi::wire

#endif

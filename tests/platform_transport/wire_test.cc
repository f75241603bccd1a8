// The message header's bytes on the socket, both ways, and what decoding refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "transport/wire.h"

namespace {

using cmi::wire::Header;
using cmi::wire::Kind;

const uint8_t kPinned[CMI_HEADER_SIZE] = {
    0x01, 0x03, 0x00, 0x00,  // version 1, stream part, reserved
    0x00, 0x00, 0x17, 0x3f,  // service 5951
    0x00, 0x00, 0x00, 0x02,  // opcode 2
    0x40, 0xbd, 0x00, 0x02,  // status
    0xfe, 0xdc, 0xba, 0x98,  // token
    0x00, 0x00, 0x01, 0x00,  // payload length 256
};

TEST(MessageHeader, PinnedBytesBothWays) {
  uint8_t bytes[CMI_HEADER_SIZE];
  cmi::wire::encode({Kind::stream_part, 5951, 2, 0x40bd0002, 0xfedcba98, 256}, bytes);
  EXPECT_EQ(0, std::memcmp(bytes, kPinned, sizeof bytes));
  Header header;
  ASSERT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 256, &header), 0u);
  EXPECT_EQ(header.kind, Kind::stream_part);
  EXPECT_EQ((std::tuple{header.service, header.opcode, header.status, header.token, header.payload_length}),
            (std::tuple{5951u, 2u, 0x40bd0002u, 0xfedcba98u, 256u}));
}

TEST(MessageHeader, RefusesHeadersThatDoNotHoldUp) {
  Header header;
  EXPECT_EQ(cmi::wire::decode(std::span(kPinned, CMI_HEADER_SIZE - 1), CMI_HEADER_SIZE - 1, &header), CMI_ERR_SHORT);
  EXPECT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 255, &header), CMI_ERR_LENGTH);
  EXPECT_EQ(cmi::wire::decode(kPinned, CMI_HEADER_SIZE + 257, &header), CMI_ERR_LENGTH);
  EXPECT_EQ(header.token, 0xfedcba98u) << "a sender of a bad length can still be answered";

  uint8_t changed[CMI_HEADER_SIZE];
  for (auto [offset, value, status] : {std::tuple{0, 2, CMI_ERR_VERSION}, std::tuple{0, 0, CMI_ERR_VERSION},
                                       std::tuple{1, 0, CMI_ERR_KIND}, std::tuple{1, 5, CMI_ERR_KIND}}) {
    std::memcpy(changed, kPinned, sizeof changed);
    changed[offset] = static_cast<uint8_t>(value);
    EXPECT_EQ(cmi::wire::decode(changed, CMI_HEADER_SIZE + 256, &header), status) << offset << "=" << value;
  }
}

}  // namespace

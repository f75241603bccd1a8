// The big-endian codec: exact bytes both ways, and checked fields that never reach past a buffer.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "schedcli/platform/codec.h"

namespace {

TEST(Codec, WordsAndHalfWordsAreBigEndianBothWays) {
  std::array<uint8_t, 6> bytes{};
  bigendian::put_u32(bytes.data(), 0x01020304u);
  bigendian::put_u16(bytes.data() + 4, 0xA0B0u);
  EXPECT_EQ(bytes, (std::array<uint8_t, 6>{1, 2, 3, 4, 0xA0, 0xB0}));
  EXPECT_EQ(bigendian::get_u32(bytes.data()), 0x01020304u);
  EXPECT_EQ(bigendian::get_u16(bytes.data() + 4), 0xA0B0u);
  bigendian::put_u32(bytes.data(), 0xFFFFFFFFu);
  EXPECT_EQ(bigendian::get_u32(bytes.data()), 0xFFFFFFFFu);
}

TEST(Codec, CheckedFieldsRefuseToReachPastTheBuffer) {
  std::array<uint8_t, 8> bytes{};
  uint32_t word = 7;
  EXPECT_TRUE(bigendian::put_u32_at(bytes, 4, 0xDEADBEEFu));
  EXPECT_FALSE(bigendian::put_u32_at(bytes, 5, 1));
  EXPECT_FALSE(bigendian::put_u32_at(bytes, SIZE_MAX - 1, 1)) << "offset plus width must not wrap";
  EXPECT_TRUE(bigendian::get_u32_at(bytes, 4, &word));
  EXPECT_EQ(word, 0xDEADBEEFu);
  EXPECT_FALSE(bigendian::get_u32_at(std::span<const uint8_t>(bytes).first(7), 4, &word));
  EXPECT_EQ(word, 0xDEADBEEFu) << "a refused read leaves the output alone";
  uint16_t half = 0;
  EXPECT_FALSE(bigendian::get_u16_at(bytes, 7, &half));
  EXPECT_TRUE(bigendian::put_u16_at(bytes, 6, 0x0102));
  EXPECT_EQ(bytes[6], 1);
}

TEST(Codec, NamesArePaddedWithNulAndReadUpToTheFirstNul) {
  std::array<uint8_t, 12> bytes;
  bytes.fill(0xEE);
  EXPECT_TRUE(bigendian::put_name_at(bytes, 2, 8, "abc"));
  EXPECT_EQ(bytes, (std::array<uint8_t, 12>{0xEE, 0xEE, 'a', 'b', 'c', 0, 0, 0, 0, 0, 0xEE, 0xEE}));
  EXPECT_FALSE(bigendian::put_name_at(bytes, 2, 8, "12345678")) << "no room for the terminator";
  EXPECT_FALSE(bigendian::put_name_at(bytes, 6, 8, "a"));
  EXPECT_EQ(bytes[2], 'a') << "a refused name writes nothing";

  std::string_view name;
  EXPECT_TRUE(bigendian::get_name_at(bytes, 2, 8, &name));
  EXPECT_EQ(name, "abc");
  // A field filled to its last byte has no terminator inside it: the whole field is the name.
  const std::array<uint8_t, 4> full{'w', 'x', 'y', 'z'};
  EXPECT_TRUE(bigendian::get_name_at(full, 0, 4, &name));
  EXPECT_EQ(name, "wxyz");
  EXPECT_FALSE(bigendian::get_name_at(full, 1, 4, &name));
}

TEST(Codec, WordRunsConvertInPlaceOnlyInsideTheImage) {
  std::array<uint8_t, 12> image{};
  const uint32_t native[2] = {0x11223344u, 5};
  std::memcpy(image.data() + 4, native, sizeof native);
  EXPECT_FALSE(bigendian::convert_words_at(image, 8, 2, true));
  EXPECT_TRUE(bigendian::convert_words_at(image, 4, 2, true));
  EXPECT_EQ(image, (std::array<uint8_t, 12>{0, 0, 0, 0, 0x11, 0x22, 0x33, 0x44, 0, 0, 0, 5}));
  EXPECT_TRUE(bigendian::convert_words_at(image, 4, 2, false));
  EXPECT_EQ(std::memcmp(image.data() + 4, native, sizeof native), 0);
}

}  // namespace

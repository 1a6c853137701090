#include "sdo/encode_payload.hpp"

#include <gtest/gtest.h>

#include <string>

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct SizedType {
  const char* type;
  std::size_t length;
};

void PrintTo(const SizedType& row, std::ostream* out) { *out << row.type; }

class EncodeSizedType : public testing::TestWithParam<SizedType> {};

TEST_P(EncodeSizedType, every_payload_length_gives_the_first_bytes_or_is_refused) {
  // Values whose signs and byte orders differ, so that a swap or an extension would show.
  const Bytes full{0x80, 0xFF, 0x01, 0xFE, 0x7F, 0x00};
  const auto length = static_cast<std::ptrdiff_t>(GetParam().length);
  for (std::size_t size = 0; size <= full.size(); ++size) {
    SCOPED_TRACE(size);
    const Bytes payload(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(size));
    const auto encoded = encode_payload(GetParam().type, payload);
    if (size < GetParam().length) {
      EXPECT_EQ(encoded, std::nullopt);
    } else {
      EXPECT_EQ(encoded, Bytes(full.begin(), full.begin() + length));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Types, EncodeSizedType,
                         testing::Values(SizedType{"u8", 1}, SizedType{"s8", 1},
                                         SizedType{"u16", 2}, SizedType{"s16", 2},
                                         SizedType{"u32", 4}, SizedType{"s32", 4}),
                         [](const auto& row) { return std::string(row.param.type); });

TEST(EncodePayload, raw_takes_the_whole_payload) {
  for (const char* type : {"", "raw"}) {
    SCOPED_TRACE(type);
    EXPECT_EQ(encode_payload(type, {1, 2, 3, 4, 5}), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(encode_payload(type, {}), Bytes{});
  }
}

TEST(EncodePayload, any_other_type_is_refused) {
  for (const char* type : {"U16", "RAW", "u64", "u24", " u8", "u8 ", "float"}) {
    SCOPED_TRACE(type);
    EXPECT_EQ(encode_payload(type, {1, 2, 3, 4, 5, 6, 7, 8}), std::nullopt);
    EXPECT_EQ(encode_payload(type, {}), std::nullopt);
  }
}

}  // namespace
}  // namespace velmora_can_bridge

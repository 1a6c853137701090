#include <gtest/gtest.h>

#include <ostream>

#include "velmora_can_bridge/values/payload_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct RawRow {
  const char* name;
  std::vector<std::string> words;
  Expected<Bytes> expected;
};

void PrintTo(const RawRow& row, std::ostream* out) { *out << row.name; }

class PayloadWords : public testing::TestWithParam<RawRow> {};

TEST_P(PayloadWords, give_bytes_or_name_the_culprit) {
  EXPECT_EQ(raw_payload_from_words(GetParam().words), GetParam().expected);
}

Unexpected<std::string> out_of_range(const std::string& word, const std::string& range) {
  return {"payload word \"" + word + "\": out of range, " + range};
}

Unexpected<std::string> no_number(const std::string& word, const std::string& text) {
  return {"payload word \"" + word + "\": \"" + text +
          "\" is not a decimal or 0x hexadecimal number"};
}

Unexpected<std::string> no_bytes(const std::string& word) {
  return {"payload word \"" + word +
          "\": expected hexadecimal bytes (0F00) or a typed value (u16:500)"};
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PayloadWords,
    testing::Values(
        RawRow{"no_words", {}, Bytes{}}, RawRow{"single_bytes", {"0F", "00"}, Bytes{0x0F, 0x00}},
        RawRow{"several_bytes_in_a_word", {"0F00ff"}, Bytes{0x0F, 0x00, 0xFF}},
        RawRow{"u8", {"u8:3"}, Bytes{3}}, RawRow{"u8_highest", {"u8:255"}, Bytes{255}},
        RawRow{"s8_lowest", {"s8:-128"}, Bytes{0x80}},
        RawRow{"u16_is_little_endian", {"u16:500"}, Bytes{0xF4, 0x01}},
        RawRow{"s16_negative", {"s16:-500"}, Bytes{0x0C, 0xFE}},
        RawRow{"u32_highest", {"u32:4294967295"}, Bytes{0xFF, 0xFF, 0xFF, 0xFF}},
        RawRow{"s32_lowest", {"s32:-2147483648"}, Bytes{0x00, 0x00, 0x00, 0x80}},
        RawRow{"typed_hexadecimal", {"u16:0x1234"}, Bytes{0x34, 0x12}},
        RawRow{"words_are_joined_in_order", {"03", "u16:750", "s8:-1"}, Bytes{3, 0xEE, 0x02, 0xFF}},
        RawRow{"odd_digits",
               {"0F0"},
               Unexpected{
                   "payload word \"0F0\": odd number of hexadecimal digits, every byte takes two"}},
        RawRow{"the_second_word_is_named",
               {"00", "F"},
               Unexpected{
                   "payload word \"F\": odd number of hexadecimal digits, every byte takes two"}},
        RawRow{"no_hex", {"xyz"}, no_bytes("xyz")}, RawRow{"empty_word", {""}, no_bytes("")},
        RawRow{"blank", {"0F 00"}, no_bytes("0F 00")},
        RawRow{"sign_among_digits", {"-1"}, no_bytes("-1")},
        RawRow{
            "prefix_on_bytes",
            {"0x0F"},
            Unexpected{"payload word \"0x0F\": bytes are written without 0x (0F00), numbers with "
                       "their type "
                       "(u16:0x0F)"}},
        RawRow{
            "unknown_type",
            {"u24:1"},
            Unexpected{"payload word \"u24:1\": unknown type \"u24\", expected u8, s8, u16, s16, "
                       "u32 or s32"}},
        RawRow{"upper_case_type",
               {"U8:1"},
               Unexpected{"payload word \"U8:1\": unknown type \"U8\", expected u8, s8, u16, s16, "
                          "u32 or s32"}},
        RawRow{"u8_too_large", {"u8:256"}, out_of_range("u8:256", "u8 is 0 to 255")},
        RawRow{"u8_negative", {"u8:-1"}, out_of_range("u8:-1", "u8 is 0 to 255")},
        RawRow{"s8_too_large", {"s8:128"}, out_of_range("s8:128", "s8 is -128 to 127")},
        RawRow{
            "s16_too_small", {"s16:-32769"}, out_of_range("s16:-32769", "s16 is -32768 to 32767")},
        RawRow{"far_too_large",
               {"u32:99999999999999999999999"},
               out_of_range("u32:99999999999999999999999", "u32 is 0 to 4294967295")},
        RawRow{"far_too_small",
               {"s32:-99999999999999999999999"},
               out_of_range("s32:-99999999999999999999999", "s32 is -2147483648 to 2147483647")},
        RawRow{"no_value", {"u8:"}, no_number("u8:", "")},
        RawRow{"text_after_the_value", {"u8:1x"}, no_number("u8:1x", "1x")},
        RawRow{"sign_after_the_prefix", {"s8:0x-1"}, no_number("s8:0x-1", "0x-1")},
        RawRow{"prefix_alone", {"u8:0x"}, no_number("u8:0x", "0x")},
        RawRow{"second_colon", {"u8:1:2"}, no_number("u8:1:2", "1:2")}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge

#include <string_view>

#include "ground/data_types.hpp"
#include "typed_word.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

Expected<Bytes> typed_number(std::string_view type_name, std::string_view text) {
  const std::optional<ValueType> type = find_value_type(type_name);
  if (!type || !sized_type_length(type_name)) {
    return Unexpected{"unknown type \"" + std::string(type_name) +
                      "\", expected u8, s8, u16, s16, u32 or s32"};
  }
  return number_bytes(*type, text);
}

Expected<Bytes> hex_bytes_of(std::string_view word) {
  if (word.substr(0, 2) == "0x" || word.substr(0, 2) == "0X") {
    return Unexpected{
        std::string("bytes are written without 0x (0F00), numbers with their type (u16:0x0F)")};
  }
  if (!is_hexadecimal(word)) {
    return Unexpected{std::string("expected hexadecimal bytes (0F00) or a typed value (u16:500)")};
  }
  return hex_digits_bytes(word);
}

Expected<Bytes> bytes_of(std::string_view word) {
  const std::size_t colon = word.find(':');
  return colon == std::string_view::npos
             ? hex_bytes_of(word)
             : typed_number(word.substr(0, colon), word.substr(colon + 1));
}

}  // namespace

Expected<std::vector<std::uint8_t>> raw_payload_from_words(const std::vector<std::string>& words) {
  Bytes payload;
  for (const std::string& word : words) {
    const Expected<Bytes> bytes = bytes_of(word);
    if (!bytes) {
      return Unexpected{"payload word \"" + word + "\": " + bytes.error()};
    }
    payload.insert(payload.end(), bytes->begin(), bytes->end());
  }
  return payload;
}

}  // namespace velmora_can_bridge

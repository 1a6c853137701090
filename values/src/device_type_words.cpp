#include "device_type_words.hpp"

#include <string_view>

#include "ground/number_text.hpp"
#include "joined_words.hpp"

namespace velmora_can_bridge {
namespace {

struct Profile {
  std::uint16_t number;
  std::string_view words;
};

constexpr Profile profiles[] = {
    {401, "inputs and outputs"},
    {402, "drive"},
    {404, "measuring and control"},
    {405, "programmable controller"},
    {406, "encoder"},
    {408, "hydraulic valve"},
    {410, "inclinometer"},
    {418, "battery"},
    {419, "charger"},
};

struct Function {
  std::uint16_t profile;
  std::uint16_t bit;
  std::string_view words;
};

/// Bits of the high word, as the profiles give them out.
constexpr Function functions[] = {
    {401, 0x0001, "digital inputs"},
    {401, 0x0002, "digital outputs"},
    {401, 0x0004, "analogue inputs"},
    {401, 0x0008, "analogue outputs"},
    {402, 0x0001, "frequency converter"},
    {402, 0x0002, "servo"},
    {402, 0x0004, "stepper"},
};

std::string profile_words(std::uint16_t number) {
  std::string text = "CiA " + std::to_string(number);
  for (const Profile& row : profiles) {
    if (row.number == number) {
      text += " " + std::string(row.words);
    }
  }
  return text;
}

}  // namespace

std::string device_type_words(std::uint32_t device_type) {
  const auto number = static_cast<std::uint16_t>(device_type);
  auto rest = static_cast<std::uint16_t>(device_type >> 16U);
  std::string text = number == 0 ? "no standard profile" : profile_words(number);
  for (const Function& row : functions) {
    if (row.profile == number && (rest & row.bit) != 0) {
      join_words(text, row.words);
      rest = static_cast<std::uint16_t>(rest & ~row.bit);
    }
  }
  if (rest != 0) {
    join_words(text, "additional information " + hex<4>(rest));
  }
  return text;
}

}  // namespace velmora_can_bridge

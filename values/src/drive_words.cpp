#include "drive_words.hpp"

#include <string_view>

#include "ground/drive_commands.hpp"
#include "ground/drive_state.hpp"
#include "joined_words.hpp"

namespace velmora_can_bridge {
namespace {

struct BitWords {
  unsigned bit;
  std::string_view words;
};

/// What bit 12 means depends on the mode: at standstill, set-point taken, home found. Bit 13 is an
/// error in every mode that has it.
constexpr BitWords statusword_bits[] = {
    {7, "warning"},      {10, "target reached"}, {11, "internal limit"},
    {12, "mode bit 12"}, {13, "mode error"},
};

/// Bit 4 starts: a set-point, a homing. What bits 5, 6 and 9 mean depends on the mode.
constexpr BitWords controlword_bits[] = {
    {4, "start"}, {5, "mode bit 5"}, {6, "mode bit 6"}, {8, "halt"}, {9, "mode bit 9"},
};

template <typename Rows>
std::string with_bits(std::string_view first, const Rows& rows, unsigned word) {
  std::string text(first);
  for (const BitWords& row : rows) {
    if ((word >> row.bit & 1U) != 0) {
      join_words(text, row.words);
    }
  }
  return text;
}

}  // namespace

std::string statusword_words(std::uint16_t statusword) {
  const std::optional<DriveState> state = drive_state_of(statusword);
  return with_bits(state ? drive_state_text(*state) : "no state of a drive", statusword_bits,
                   statusword);
}

std::string controlword_words(std::uint16_t controlword) {
  return with_bits(drive_command(controlword).name, controlword_bits, controlword);
}

}  // namespace velmora_can_bridge

#include "ground/drive_commands.hpp"

#include <gtest/gtest.h>

#include <string>

namespace velmora_can_bridge {
namespace {

TEST(DriveCommands, every_word_is_exactly_one) {
  for (unsigned word = 0; word <= 0xFFFF; ++word) {
    const auto matches =
        std::count_if(std::begin(drive_commands), std::end(drive_commands),
                      [=](const DriveCommandRow& row) { return (word & row.mask) == row.bits; });
    ASSERT_EQ(matches, 1) << word;
  }
}

struct Row {
  std::uint16_t controlword;
  const char* name;
};

TEST(DriveCommands, are_told_by_bits_0_to_3_and_7) {
  const Row rows[] = {
      {0x0006, "shutdown"},         {0x000E, "shutdown"},         {0x0007, "switch on"},
      {0x000F, "enable operation"}, {0x011F, "enable operation"}, {0x0000, "disable voltage"},
      {0x000D, "disable voltage"},  {0x0002, "quick stop"},       {0x000B, "quick stop"},
      {0x0080, "fault reset"},      {0x008F, "fault reset"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(drive_command(row.controlword).name, row.name) << row.controlword;
  }
}

}  // namespace
}  // namespace velmora_can_bridge

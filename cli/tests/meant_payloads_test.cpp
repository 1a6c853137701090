// What people type, and once got answered "ok" although it cannot be meant.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "command_line_fixture.hpp"
#include "example_board.hpp"

namespace velmora_can_bridge {
namespace {

using testing::HasSubstr;
using Strings = std::vector<std::string>;

struct Typed {
  std::string name;
  /// Device, operation and words.
  Strings words;
  /// In the diagnostic of a refusal, or among the transfers.
  std::string text;
};

void PrintTo(const Typed& row, std::ostream* out) { *out << row.name; }

class MeantPayload : public CommandLine, public testing::WithParamInterface<Typed> {
 protected:
  ExitStatus run_words(const Strings& options = {}) {
    Strings arguments{"run", write_file("robot_board.yaml", std::string(example_board()))};
    arguments.insert(arguments.end(), GetParam().words.begin(), GetParam().words.end());
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }
};

class Refused : public MeantPayload {};

TEST_P(Refused, before_anything_is_sent) {
  EXPECT_EQ(run_words({"--transfers"}), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
  EXPECT_THAT(err, HasSubstr(GetParam().text));
  EXPECT_THAT(err, HasSubstr("; expected "));
  EXPECT_THAT(err, testing::Not(HasSubstr("node 0x10")));
}

INSTANTIATE_TEST_SUITE_P(
    Words, Refused,
    testing::Values(
        Typed{"target_of_four_bytes", {"left_wheel", "set_target", "s32:40000"}, "expected s16"},
        Typed{"target_out_of_range",
              {"left_wheel", "set_target", "40000"},
              "40000 is out of range, -32768 to 32767"},
        Typed{"halves_of_a_velocity",
              {"left_wheel", "drive_patch", "s16:300", "s16:-300"},
              "expected s32"},
        Typed{"four_values_for_two",
              {"left_wheel", "drive", "1000", "2000", "3000", "4000"},
              "\"3000\" is one value too many"},
        Typed{"channel_of_two_bytes", {"pumps", "set_pump", "u16:1", "u16:750"}, "expected u8"},
        Typed{"value_for_nothing", {"left_wheel", "enable", "1"}, "\"1\" is one value too many"},
        Typed{"hexadecimal_without_0x", {"led", "set_led_blue", "0F"}, "write 0x0F for the number"},
        Typed{
            "colour_in_one_word", {"led", "set_led", "FF8000", "2", "800"}, "hex:FF8000 for bytes"},
        Typed{"duty_above_the_whole", {"pumps", "set_pump", "1", "1001"}, "0 to 1000"},
        Typed{"wrong_unit", {"left_wheel", "drive", "300mm/s", "0"}, "expected m/s"},
        Typed{"unknown_code", {"led", "set_led_mode", "glow", "800"}, "\"glow\""}),
    [](const auto& row) { return row.param.name; });

class Taken : public MeantPayload {};

TEST_P(Taken, as_it_is_meant) {
  EXPECT_EQ(run_words({"--transfers"}), ExitStatus::success) << err;
  EXPECT_THAT(err, HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(
    Words, Taken,
    testing::Values(
        Typed{"decimal_target", {"left_wheel", "set_target", "1000"}, "<- E8 03 00 00"},
        Typed{"velocities", {"left_wheel", "drive", "300", "-300"}, "<- 2C 01 00 00 D4 FE FF FF"},
        Typed{"velocities_in_their_unit",
              {"left_wheel", "drive", "0.5m/s", "right=-0.3m/s"},
              "<- F4 01 00 00 D4 FE FF FF"},
        Typed{"pump", {"pumps", "set_pump", "3", "750"}, "0x2200/3 <- EE 02"},
        Typed{"led_by_name",
              {"led", "set_led", "red=255", "green=128", "blue=0", "mode=breath", "period=800"},
              "<- FF 80 00 02 20 03"},
        Typed{"raw_as_ever",
              {"left_wheel", "drive_patch", "s16:300", "s16:-300", "--raw"},
              "<- 2C 01 D4 FE"}),
    [](const auto& row) { return row.param.name; });

TEST_F(CommandLine, velocity_is_read_with_its_sign) {
  const std::string path = write_file("robot_board.yaml", std::string(example_board()));
  const std::string script =
      write_file("lines.txt", "left_wheel drive -77 0\nleft_wheel read_object 0xBF\n");
  EXPECT_EQ(run({"script", path, script}), ExitStatus::success) << err;
  EXPECT_THAT(out, HasSubstr("value: -77, -0.077 m/s"));
}

}  // namespace
}  // namespace velmora_can_bridge

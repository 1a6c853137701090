#include "line_completion.hpp"

#include <gtest/gtest.h>

#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

constexpr const char* robot = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      lamp: {profile: io, base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: lamp_mode, values: {off: 0, on: 1}}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: lamp_level}
    operations:
      enable: {kind: ci402_enable}
      set_lamp: {kind: pdo_write, pdo_number: 1, fields: [lamp_mode, lamp_level]}
      set_mode: {kind: ci402_set_mode}
  - node_id: 0x11
    device_od_map:
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
    operations:
      home: {kind: claw_action, action: home}
)";

struct CompletionRow {
  const char* name;
  const char* line;
  Words candidates;
};

class Completion : public testing::TestWithParam<CompletionRow> {};

TEST_P(Completion, offers_what_may_stand_there) {
  const LoadedBoard loaded = parse_board(robot);
  ASSERT_TRUE(loaded.file);
  EXPECT_EQ(line_candidates(GetParam().line, *loaded.file), GetParam().candidates);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, Completion,
    testing::Values(
        CompletionRow{"first_word", "", {"claw", "explain", "lamp", "run", "wait", "wheel"}},
        CompletionRow{"begun_word", "w", {"wait", "wheel"}},
        CompletionRow{"device_behind_run", "run ", {"claw", "lamp", "wheel"}},
        CompletionRow{"device_behind_explain", "explain  w", {"wheel"}},
        CompletionRow{"operations_of_a_drive", "wheel ", {"enable", "set_lamp", "set_mode"}},
        CompletionRow{"operations_that_suit", "lamp ", {"set_lamp"}},
        CompletionRow{"operations_of_the_node", "run claw ", {"home"}},
        CompletionRow{"operations_of_a_node_id_need_no_device", "0x10 ", {"set_lamp"}},
        CompletionRow{"payload_on_a_node_id", "16 set_lamp o", {"off", "on"}},
        CompletionRow{"unknown_device", "nobody ", {}},
        CompletionRow{"names_and_codes_of_values",
                      "lamp set_lamp ",
                      {"lamp_level=", "lamp_mode=", "lamp_mode=off", "lamp_mode=on", "off", "on"}},
        CompletionRow{"codes_that_begin_so", "lamp set_lamp o", {"off", "on"}},
        CompletionRow{"values_behind_the_first", "lamp set_lamp on ", {"lamp_level="}},
        CompletionRow{"values_that_are_not_named",
                      "lamp set_lamp level=3 lamp_",
                      {"lamp_mode=", "lamp_mode=off", "lamp_mode=on"}},
        CompletionRow{"codes_behind_a_short_name", "lamp set_lamp mode=", {"mode=off", "mode=on"}},
        CompletionRow{"more_than_all_values", "lamp set_lamp on 3 ", {}},
        CompletionRow{"unknown_operation", "lamp nothing ", {}},
        CompletionRow{"modes_of_a_drive", "wheel set_mode vel", {"velocity"}},
        CompletionRow{"drives_to_wait_for", "wait ", {"claw", "wheel"}},
        CompletionRow{"conditions", "wait wheel fa", {"fault", "fault_reaction_active"}},
        CompletionRow{"time_of_a_wait", "wait wheel fault ", {}}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CommonBeginning, is_that_of_all_words) {
  EXPECT_EQ(common_beginning({"lamp_mode=off", "lamp_mode=on", "lamp_mode="}), "lamp_mode=");
  EXPECT_EQ(common_beginning({"ab"}), "ab");
  EXPECT_EQ(common_beginning({"ab", "abc"}), "ab");
  EXPECT_EQ(common_beginning({"a", "b"}), "");
  EXPECT_EQ(common_beginning({}), "");
}

}  // namespace
}  // namespace velmora_can_bridge

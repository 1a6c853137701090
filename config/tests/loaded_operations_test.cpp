// What loads without an error can work: every operation succeeds with some payload, on every device
// that suits it, where the node takes everything.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "problem_texts.hpp"
#include "repository_paths.hpp"
#include "support/willing_backend.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Zeros or ones of 0 to 8 bytes, and behind each channel of the operation.
std::vector<Bytes> payloads_for(const OperationConfig& op) {
  std::vector<Bytes> payloads;
  for (std::size_t length = 0; length <= 8; ++length) {
    payloads.emplace_back(length, std::uint8_t{0});
    payloads.emplace_back(length, std::uint8_t{1});
  }
  for (const Bytes* channels : {&op.rpdo_channels, &op.sdo_channels}) {
    for (const std::uint8_t channel : *channels) {
      payloads.push_back({channel, 0, 0});
    }
  }
  return payloads;
}

bool suits(const OperationConfig& op, const DeviceOdEntry& device) {
  if (op.kind == "claw_action") {
    return device.homing_record != 0;
  }
  const bool needs_drive = op.kind.rfind("ci402_", 0) == 0;
  return !needs_drive || device.profile == "ci402" || device.profile == "claw";
}

bool can_succeed(const NodeConfig& node, const OperationConfig& op, const std::string& device) {
  WillingBackend bus;
  CanOpenNodeController controller(node.node_id, bus, node.board);
  for (const Bytes& payload : payloads_for(op)) {
    if (controller.execute_configured_operation(op, device, payload).ok) {
      return true;
    }
  }
  return false;
}

/// How many pairs of an operation and a device were tried.
std::size_t expect_success(const BoardFile& board) {
  std::size_t tried = 0;
  for (const NodeConfig& node : board.nodes) {
    for (const auto& [name, op] : node.operations) {
      for (const auto& [device, entry] : node.board.device_od_map) {
        if (suits(op, entry)) {
          EXPECT_TRUE(can_succeed(node, op, device)) << name << " on " << device;
          ++tried;
        }
      }
    }
  }
  return tried;
}

TEST(LoadedOperations, of_the_example_can_succeed) {
  const LoadedBoard loaded = load_board_file(example_board_path);
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_GT(expect_success(*loaded.file), 100U);
}

/// A key of an operation with values that may suit the board below, or not.
struct KeyChoice {
  const char* key;
  std::vector<const char*> values;
};

const std::vector<KeyChoice> key_choices = {
    {"transport", {"sdo", "pdo"}},
    {"index", {"0x2000", "0x2200", "0x6040", "0x60FF", "0x2600", "0x1018"}},
    {"sub_index", {"0", "1", "2", "5"}},
    {"subindex_in_payload", {"true"}},
    {"sub_indices", {"[1]", "[0, 1, 2]"}},
    {"fixed_data", {"[1]", "[1, 0]"}},
    {"default_data", {"[1]", "[1, 0, 0, 0]"}},
    {"data_type", {"u8", "s16", "u32", "raw"}},
    {"field", {"red", "period", "nibble", "gap", "control", "pump"}},
    {"pdo_number", {"1", "3", "4", "5"}},
    {"refresh_shadow", {"true"}},
    {"bit_index", {"3"}},
    {"named", {"true"}},
    {"fields",
     {"[red]", "[red, green, blue]", "[red, green, blue, mode, period]", "[mode, period]",
      "[target, control]", "[nibble]", "[behind]", "[gap]", "[pump]", "[]"}},
    {"index_offset", {"0x41", "0x43", "0x20"}},
    {"action", {"home", "query"}},
    {"led_operation", {"set_led", "set_color", "set_mode"}},
    {"pump_pdo_number", {"3", "4"}},
    {"rpdo_channels", {"[1]", "[1, 2]", "[7]"}},
    {"sdo_channels", {"[3]", "[1]"}},
};

constexpr const char* board_of_operations = R"(nodes:
  - node_id: 1
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      claw: {profile: claw, base_index: 0x6840, homing_record: 0x2100}
      led: {profile: io, base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x60FF, bit_length: 32, field: target}
          - {index: 0x6040, bit_length: 16, field: control}
      - number: 3
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: red}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: green}
          - {index: 0x2000, sub_index: 3, bit_length: 8, field: blue}
          - {index: 0x2000, sub_index: 4, bit_length: 8, field: mode}
          - {index: 0x2000, sub_index: 5, bit_length: 16}
      - number: 4
        direction: RPDO
        mappings:
          - {index: 0x2200, sub_index: 1, bit_length: 16, field: pump}
          - {index: 0x2200, sub_index: 2, bit_length: 8}
          - {index: 5, bit_length: 8, field: gap}
          - {index: 0x2400, bit_length: 4, field: nibble}
          - {index: 0x2401, bit_length: 20, field: behind}
      - number: 2
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 6, bit_length: 16, field: period}
    operations:
)";

/// An operation of a kind with what it needs, and now and then another key.
std::string random_operation(std::mt19937& random) {
  const auto below = [&random](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  const OperationKind& kind = operation_kinds[below(std::size(operation_kinds))];
  std::string text = "kind: " + std::string(kind.kind);
  for (const KeyChoice& choice : key_choices) {
    const bool is_required = kind.required.contains(choice.key);
    if (kind.members.contains(choice.key) && (is_required || below(2) == 0)) {
      text += std::string(", ") + choice.key + ": " + choice.values[below(choice.values.size())];
    }
  }
  return "      op: {" + text + "}\n";
}

TEST(LoadedOperations, of_any_kind_can_succeed) {
  std::mt19937 random(20261122);
  std::size_t loaded_count = 0;
  for (int round = 0; round < 2000; ++round) {
    const std::string operation = random_operation(random);
    SCOPED_TRACE(operation);
    const LoadedBoard loaded = parse_board(board_of_operations + operation);
    if (loaded.file) {
      ++loaded_count;
      EXPECT_GT(expect_success(*loaded.file), 0U);
    }
  }
  EXPECT_GT(loaded_count, 500U);
}

}  // namespace
}  // namespace velmora_can_bridge

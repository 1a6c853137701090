#include <algorithm>
#include <string>
#include <type_traits>

#include "support/controller_test.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using Controller = CanOpenNodeController;

// What must not compile: temporaries in the place of what has to outlive the controller, const ones
// included, and copies or moves.
template <typename NodeId, typename Board>
constexpr bool constructs = std::is_constructible_v<Controller, NodeId, CanOpenBackend&, Board>;

static_assert(constructs<std::uint8_t&, BoardConfig&>);
static_assert(constructs<const std::uint8_t&, const BoardConfig&>);
static_assert(!constructs<std::uint8_t, BoardConfig&>);
static_assert(!constructs<const std::uint8_t, const BoardConfig&>);
static_assert(!constructs<int&, const BoardConfig&>, "would refer to a converted temporary");
static_assert(!constructs<std::uint8_t&, BoardConfig>);
static_assert(!constructs<const std::uint8_t&, const BoardConfig>);
static_assert(!constructs<std::uint8_t, BoardConfig>);
static_assert(!constructs<const std::uint8_t, const BoardConfig>);
static_assert(!std::is_copy_constructible_v<Controller>);
static_assert(!std::is_move_constructible_v<Controller>);
static_assert(!std::is_copy_assignable_v<Controller>);
static_assert(!std::is_move_assignable_v<Controller>);

using Dispatch = ControllerTest;

TEST_F(Dispatch, text_that_is_no_kind_is_answered_as_it_stands) {
  for (const char* kind :
       {"",           "SDO_READ",   "Sdo_read",     " sdo_read",     "sdo_read ",
        "sdo_rea",    "sdo_reads",  "read",         "sdo_write\n",   "unknown",
        "PDO_WRITE",  "pdo_patch ", " led_write",   "bit_patch_",    "pdo",
        "Auto_write", "ci402",      "CI402_enable", "ci402_enable ", "ci402_quickstop",
        "ci402_set",  "claw",       "Claw_action",  " pump_duty",    "pump_dut"}) {
    SCOPED_TRACE(kind);
    op.kind = kind;
    EXPECT_EQ(run({1, 2, 3}), failed(std::string("Unknown operation kind: ") + kind));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Dispatch, kind_with_a_nul_byte_is_answered_whole) {
  op.kind = std::string("sdo_read\0x", 10);
  EXPECT_EQ(run(), failed(std::string("Unknown operation kind: sdo_read\0x", 34)));
}

TEST_F(Dispatch, each_kind_reaches_its_handler) {
  struct Row {
    const char* kind;
    const char* first_call;
  };
  op.index = 0x2001;
  op.sub_index = 3;
  op.sub_indices = {4};
  for (const Row& row : {Row{"sdo_write", "write 5 0x2001/3"}, Row{"sdo_read", "read 5 0x2001/3"},
                         Row{"read_multi", "read 5 0x2001/4"}}) {
    SCOPED_TRACE(row.kind);
    backend.calls.clear();
    op.kind = row.kind;
    EXPECT_EQ(run(), ok("OK"));
    EXPECT_EQ(backend.calls, std::vector<std::string>{row.first_call});
  }
}

TEST_F(Dispatch, each_kind_refuses_an_empty_payload_or_configuration_in_its_own_words) {
  struct Row {
    const char* kind;
    const char* message;
  };
  op.index = 0x2001;
  op.data_type = "u8";
  board.device_od_map = {{"device", {"io", 0x2001, 0}}};
  backend.refuse();  // the one read, of od_io_read
  for (const Row& row :
       {Row{"od_io_read", "SDO read failed at 0x2001/0"},
        Row{"od_io_write", "payload too short for od_io_write (need offset+sub+data)"},
        Row{"led_write", "led_write requires fields"},
        Row{"auto_write", "payload too short for auto_write (SDO)"},
        Row{"pdo_write", "No RPDO mapping found for device"},
        Row{"pdo_patch", "No RPDO mapping found for device"},
        Row{"bit_patch", "payload too short for bit_patch (mask+values)"},
        Row{"pdo_bit_patch", "pdo_bit_patch requires fields"}}) {
    SCOPED_TRACE(row.kind);
    op.kind = row.kind;
    EXPECT_EQ(run(), failed(row.message));
  }
  EXPECT_EQ(backend.calls, std::vector<std::string>{"read 5 0x2001/0"});
}

TEST_F(Dispatch, each_drive_and_actuator_kind_answers_an_empty_payload_in_its_own_words) {
  struct Row {
    const char* kind = nullptr;
    OperationResult result;
  };
  board.device_od_map = {{"device", {"ci402", 0x6040, 0}}};
  for (const Row& row :
       {Row{"ci402_enable", ok("Motor enabled")}, Row{"ci402_disable", ok("Motor disabled")},
        Row{"ci402_quick_stop", ok("Quick stop sent")},
        Row{"ci402_set_mode", failed("payload empty for ci402_set_mode")},
        Row{"ci402_set_target", failed("payload too short for set_target (need 2 bytes)")},
        Row{"ci402_ramp", failed("payload too short for ci402_ramp (need 4 bytes)")},
        Row{"claw_action", failed("claw_action requires homing_record in device_od_map")},
        Row{"pump_duty", failed("payload too short for pump_duty")}}) {
    SCOPED_TRACE(row.kind);
    op.kind = row.kind;
    EXPECT_EQ(run(), row.result);
  }
}

bool is_unknown(const OperationResult& result) {
  return result.message.rfind("Unknown operation kind", 0) == 0;
}

TEST_F(Dispatch, every_kind_is_known) {
  for (const OperationKind& row : operation_kinds) {
    op.kind = row.kind;
    EXPECT_FALSE(is_unknown(run({1, 2, 3, 4}))) << row.kind;
  }
}

TEST_F(Dispatch, every_kind_is_known_in_its_exact_spelling_alone) {
  for (const OperationKind& row : operation_kinds) {
    const std::string kind(row.kind);
    std::string upper = kind;
    upper[0] = static_cast<char>(upper[0] - 'a' + 'A');
    std::string blank = kind;
    std::replace(blank.begin(), blank.end(), '_', ' ');
    for (const std::string& text : {upper, blank, kind + " ", " " + kind, kind + "\n", kind + kind,
                                    kind.substr(1), kind.substr(0, kind.size() - 1)}) {
      op.kind = text;
      EXPECT_EQ(run({1, 2, 3, 4}), failed("Unknown operation kind: " + text));
    }
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(Dispatch, pdo_write_and_pdo_patch_reach_the_same_handler) {
  board.pdos = {{1, "RPDO", 0, {{0x2001, 0, 8, "a"}}}};
  op.pdo_number = 1;
  op.fields = {"a"};
  op.kind = "pdo_write";
  EXPECT_EQ(run({1}), ok("OK"));
  op.kind = "pdo_patch";
  EXPECT_EQ(run({2}), ok("OK"));
  EXPECT_EQ(backend.calls,
            (std::vector<std::string>{"read 5 0x2001/0", "rpdo 5 1 len 1: 01 00 00 00 00 00 00 00",
                                      "rpdo 5 1 len 1: 02 00 00 00 00 00 00 00"}));
}

TEST_F(Dispatch, node_id_is_read_afresh_at_every_bus_call) {
  op.kind = "sdo_read";
  op.index = 0x1018;
  run();
  node_id = 127;
  run();
  EXPECT_EQ(backend.calls, (std::vector<std::string>{"read 5 0x1018/0", "read 127 0x1018/0"}));
}

TEST_F(Dispatch, exception_of_the_backend_passes_to_the_caller) {
  op.kind = "sdo_read";
  backend.raise_exception();
  EXPECT_THROW(run(), BusException);
  EXPECT_EQ(run(), ok("OK"));
}

}  // namespace
}  // namespace velmora_can_bridge

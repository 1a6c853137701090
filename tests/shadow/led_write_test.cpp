#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

constexpr auto bad_mode = "unsupported LED mode (expected 0..3)";
constexpr auto bad_period = "breath/blink period must be greater than zero";

/// RPDO 3 carries an LED's colour, mode and period, and behind them the brightness.
class LedWrite : public ControllerTest {
 protected:
  LedWrite() {
    board.pdos = {{3,
                   "RPDO",
                   0,
                   {{0x2100, 1, 24, "color"},
                    {0x2100, 2, 8, "mode"},
                    {0x2100, 3, 16, "period"},
                    {0x2100, 4, 8, "brightness"}}}};
    backend.objects = {{{0x2100, 1}, {0x11, 0x12, 0x13}},
                       {{0x2100, 2}, {0x02}},
                       {{0x2100, 3}, {0x31, 0x32}},
                       {{0x2100, 4}, {0x41}}};
    op.kind = "led_write";
    op.pdo_number = 3;
  }

  void configure(const std::string& led_operation) {
    op.led_operation = led_operation;
    op.fields = {"color", "mode", "period"};
    if (led_operation == "set_color") {
      op.fields = {"color"};
    } else if (led_operation == "set_mode") {
      op.fields = {"mode", "period"};
    }
  }

  static Calls loaded_then(const std::string& send) {
    return {"read 5 0x2100/1", "read 5 0x2100/2", "read 5 0x2100/3", "read 5 0x2100/4", send};
  }
};

// --- payloads ---

struct LedRow {
  const char* name;
  const char* led_operation;
  Bytes payload;
  const char* refusal;  ///< null when the payload is accepted
  const char* send;
};

void PrintTo(const LedRow& row, std::ostream* out) { *out << row.name; }

LedRow accepted(const char* name, const char* led_operation, Bytes payload, const char* send) {
  return {name, led_operation, std::move(payload), nullptr, send};
}

LedRow refused(const char* name, const char* led_operation, Bytes payload, const char* refusal) {
  return {name, led_operation, std::move(payload), refusal, nullptr};
}

class LedWritePayload : public LedWrite, public testing::WithParamInterface<LedRow> {};

TEST_P(LedWritePayload, is_checked_before_the_bus_is_touched) {
  const LedRow& row = GetParam();
  configure(row.led_operation);
  const OperationResult result = run(row.payload);
  if (row.refusal != nullptr) {
    EXPECT_EQ(result, failed(row.refusal));
    EXPECT_TRUE(backend.calls.empty());
  } else {
    EXPECT_EQ(result, ok("OK"));
    EXPECT_EQ(backend.calls, loaded_then(row.send));
  }
}

constexpr auto led_size = "set_led payload must contain exactly 6 bytes";
constexpr auto color_size = "set_color payload must contain exactly 3 bytes";
constexpr auto mode_size = "set_mode payload must contain exactly 3 bytes";

INSTANTIATE_TEST_SUITE_P(
    SetLed, LedWritePayload,
    testing::Values(accepted("mode_0_without_period", "set_led", {1, 2, 3, 0, 0, 0},
                             "rpdo 5 3 len 7: 01 02 03 00 00 00 41 00"),
                    accepted("mode_1_without_period", "set_led", {1, 2, 3, 1, 0, 0},
                             "rpdo 5 3 len 7: 01 02 03 01 00 00 41 00"),
                    accepted("mode_1_with_period", "set_led", {1, 2, 3, 1, 5, 6},
                             "rpdo 5 3 len 7: 01 02 03 01 05 06 41 00"),
                    accepted("mode_2_with_low_period", "set_led", {1, 2, 3, 2, 1, 0},
                             "rpdo 5 3 len 7: 01 02 03 02 01 00 41 00"),
                    accepted("mode_3_with_high_period", "set_led", {1, 2, 3, 3, 0, 1},
                             "rpdo 5 3 len 7: 01 02 03 03 00 01 41 00"),
                    accepted("any_color", "set_led", {0, 0xFF, 0x80, 0, 0, 0},
                             "rpdo 5 3 len 7: 00 FF 80 00 00 00 41 00"),
                    refused("mode_2_without_period", "set_led", {1, 2, 3, 2, 0, 0}, bad_period),
                    refused("mode_3_without_period", "set_led", {1, 2, 3, 3, 0, 0}, bad_period),
                    refused("mode_4_without_period", "set_led", {1, 2, 3, 4, 0, 0}, bad_mode),
                    refused("mode_4_with_period", "set_led", {1, 2, 3, 4, 1, 0}, bad_mode),
                    refused("mode_255", "set_led", {1, 2, 3, 255, 1, 0}, bad_mode),
                    refused("no_bytes", "set_led", {}, led_size),
                    refused("five_bytes", "set_led", {1, 2, 3, 1, 0}, led_size),
                    refused("seven_bytes", "set_led", {1, 2, 3, 1, 0, 0, 0}, led_size),
                    refused("size_before_mode", "set_led", {1, 2, 3, 9, 0, 0, 0}, led_size)),
    row_name);

INSTANTIATE_TEST_SUITE_P(
    SetColor, LedWritePayload,
    testing::Values(accepted("color", "set_color", {0xFF, 4, 0},
                             "rpdo 5 3 len 7: FF 04 00 02 31 32 41 00"),
                    accepted("color_that_would_be_no_mode", "set_color", {2, 0, 0},
                             "rpdo 5 3 len 7: 02 00 00 02 31 32 41 00"),
                    refused("no_bytes", "set_color", {}, color_size),
                    refused("two_bytes", "set_color", {1, 2}, color_size),
                    refused("four_bytes", "set_color", {1, 2, 3, 4}, color_size)),
    row_name);

INSTANTIATE_TEST_SUITE_P(
    SetMode, LedWritePayload,
    testing::Values(accepted("mode_0_without_period", "set_mode", {0, 0, 0},
                             "rpdo 5 3 len 7: 11 12 13 00 00 00 41 00"),
                    accepted("mode_1_without_period", "set_mode", {1, 0, 0},
                             "rpdo 5 3 len 7: 11 12 13 01 00 00 41 00"),
                    accepted("mode_3_with_low_period", "set_mode", {3, 1, 0},
                             "rpdo 5 3 len 7: 11 12 13 03 01 00 41 00"),
                    accepted("mode_2_with_high_period", "set_mode", {2, 0, 1},
                             "rpdo 5 3 len 7: 11 12 13 02 00 01 41 00"),
                    refused("mode_3_without_period", "set_mode", {3, 0, 0}, bad_period),
                    refused("mode_2_without_period", "set_mode", {2, 0, 0}, bad_period),
                    refused("mode_4_without_period", "set_mode", {4, 0, 0}, bad_mode),
                    refused("mode_4_with_period", "set_mode", {4, 1, 0}, bad_mode),
                    refused("no_bytes", "set_mode", {}, mode_size),
                    refused("two_bytes", "set_mode", {1, 0}, mode_size),
                    refused("four_bytes", "set_mode", {1, 0, 0, 0}, mode_size),
                    refused("size_before_mode", "set_mode", {9, 0}, mode_size)),
    row_name);

// --- the sub-operation ---

TEST_F(LedWrite, fields_are_required_before_anything_else) {
  for (const char* name : {"set_led", "set_color", "set_mode", "unknown", ""}) {
    SCOPED_TRACE(name);
    op.led_operation = name;
    op.field = "color";
    EXPECT_EQ(run({}), failed("led_write requires fields"));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(LedWrite, unknown_sub_operation_is_answered_as_it_stands) {
  op.fields = {"color"};
  for (const char* name : {"", "SET_LED", "set_led ", "set_colour", "set", "led"}) {
    SCOPED_TRACE(name);
    op.led_operation = name;
    EXPECT_EQ(run({1, 2, 3}), failed(std::string("Unknown led_write operation: ") + name));
  }
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(LedWrite, sub_operation_with_a_nul_byte_is_unknown) {
  op.fields = {"color"};
  op.led_operation = std::string("set_color\0", 10);
  EXPECT_EQ(run({1, 2, 3}), failed(std::string("Unknown led_write operation: set_color\0", 39)));
}

// --- the derived write ---

TEST_F(LedWrite, set_led_does_not_reload_a_synced_image) {
  configure("set_led");
  run({1, 2, 3, 0, 0, 0});
  backend.calls.clear();
  backend.objects[{0x2100, 4}] = {0x99};
  run({4, 5, 6, 0, 0, 0});
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 3 len 7: 04 05 06 00 00 00 41 00"});
}

TEST_F(LedWrite, set_led_reloads_when_the_operation_says_so) {
  configure("set_led");
  run({1, 2, 3, 0, 0, 0});
  backend.calls.clear();
  backend.objects[{0x2100, 4}] = {0x99};
  op.refresh_shadow = 1;
  run({4, 5, 6, 0, 0, 0});
  EXPECT_EQ(backend.calls, loaded_then("rpdo 5 3 len 7: 04 05 06 00 00 00 99 00"));
}

TEST_F(LedWrite, set_color_keeps_the_mode_that_the_node_has_now) {
  configure("set_color");
  run({1, 2, 3});
  backend.calls.clear();
  backend.objects[{0x2100, 2}] = {0x03};
  EXPECT_EQ(run({4, 5, 6}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then("rpdo 5 3 len 7: 04 05 06 03 31 32 41 00"));
}

TEST_F(LedWrite, set_mode_keeps_the_color_that_the_node_has_now) {
  configure("set_mode");
  run({1, 0, 0});
  backend.calls.clear();
  backend.objects[{0x2100, 1}] = {0x51, 0x52, 0x53};
  EXPECT_EQ(run({2, 1, 0}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then("rpdo 5 3 len 7: 51 52 53 02 01 00 41 00"));
}

TEST_F(LedWrite, set_led_must_cover_every_field) {
  configure("set_led");
  op.fields.emplace_back("brightness");
  EXPECT_EQ(run({1, 2, 3, 0, 0, 0}), failed("payload too short for field brightness"));
}

TEST_F(LedWrite, set_color_leaves_fields_that_it_does_not_cover_alone) {
  configure("set_color");
  op.fields = {"color", "mode"};
  EXPECT_EQ(run({1, 2, 3}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then("rpdo 5 3 len 7: 01 02 03 02 31 32 41 00"));
}

TEST_F(LedWrite, set_mode_leaves_fields_that_it_does_not_cover_alone) {
  configure("set_mode");
  op.fields = {"mode", "period", "brightness"};
  EXPECT_EQ(run({1, 2, 3}), ok("OK"));
  EXPECT_EQ(backend.calls, loaded_then("rpdo 5 3 len 7: 11 12 13 01 02 03 41 00"));
}

TEST_F(LedWrite, failure_of_the_derived_write_comes_back_unchanged) {
  configure("set_color");
  op.fields = {"unknown"};
  EXPECT_EQ(run({1, 2, 3}), failed("RPDO field not found: unknown"));
  op.pdo_number = 0;
  op.index = 0x7777;
  EXPECT_EQ(run({1, 2, 3}), failed("No RPDO mapping found for device"));
}

TEST_F(LedWrite, rpdo_is_found_by_the_object_when_no_number_is_configured) {
  configure("set_color");
  op.pdo_number = 0;
  op.index = 0x2100;
  EXPECT_EQ(run({1, 2, 3}), ok("OK"));
}

TEST_F(LedWrite, sdo_transport_writes_the_fields_one_by_one) {
  configure("set_led");
  op.transport = "sdo";
  EXPECT_EQ(run({1, 2, 3, 1, 0, 0}), ok("OK (SDO)"));
  EXPECT_EQ(backend.calls,
            (Calls{"write 5 0x2100/1 01 02 03", "write 5 0x2100/2 01", "write 5 0x2100/3 00 00"}));
}

TEST_F(LedWrite, operation_itself_is_not_changed) {
  configure("set_color");
  run({1, 2, 3});
  EXPECT_EQ(op.kind, "led_write");
  EXPECT_EQ(op.refresh_shadow, 0);
}

// --- failures of the bus ---

class LedWriteFailing : public ShadowTest, public testing::WithParamInterface<FailingCall> {
 protected:
  LedWriteFailing() {
    op.kind = "led_write";
    op.pdo_number = 1;
  }
};

TEST_P(LedWriteFailing, set_led_leaves_the_image_that_the_next_send_shows) {
  op.led_operation = "set_led";
  op.fields = {"word", "wide"};
  expect_failing_call(GetParam(), {0xA1, 0xA2, 0xA3, 0, 0xA5, 0xA6}, "device",
                      {0xA1, 0xA2, 0x13, 0x14, 0xA3, 0x00, 0xA5, 0xA6});
}

TEST_P(LedWriteFailing, set_color_leaves_the_refreshed_image_with_the_color) {
  op.led_operation = "set_color";
  op.fields = {"word", "byte"};
  expect_failing_call_of_refresh(GetParam(), {0xA1, 0xA2, 0xA3}, [](Frame& frame) {
    frame[0] = 0xA1;
    frame[1] = 0xA2;
    frame[2] = 0xA3;
  });
}

TEST_P(LedWriteFailing, set_mode_leaves_the_refreshed_image_with_the_mode) {
  op.led_operation = "set_mode";
  op.fields = {"flags", "word"};
  expect_failing_call_of_refresh(GetParam(), {3, 0xA1, 0xA2}, [](Frame& frame) {
    frame[3] = 3;
    frame[0] = 0xA1;
    frame[1] = 0xA2;
  });
}

INSTANTIATE_TEST_SUITE_P(Calls, LedWriteFailing, testing::ValuesIn(failing_calls), row_name);

}  // namespace
}  // namespace velmora_can_bridge

// Every kind, with every bus call of its success path refused, throwing, or held up.
#include <future>
#include <string>
#include <vector>

#include "support/controller_test.hpp"
#include "support/every_kind.hpp"
#include "support/patience.hpp"

namespace velmora_can_bridge {
namespace {

using Calls = std::vector<std::string>;

/// Where a failing call leaves the image of RPDO 1.
enum class Image { not_loaded, as_loaded, changed };

/// One call of the success path.
struct Step {
  std::string call;
  /// What the operation answers when the call is refused.
  std::string message;
  /// What is left when it fails: the mode recorded for the device, and the image.
  int mode = 0;
  Image image = Image::not_loaded;
};

struct Row {
  std::string name;
  OperationConfig op;
  std::string device;
  Bytes payload;
  OperationResult success;
  std::vector<Step> steps;
  /// The changed frame, for kinds that write to the image.
  std::string changed;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

OperationConfig kind(const std::string& text) {
  OperationConfig op;
  op.kind = text;
  op.index = 0x3000;
  op.pdo_number = 1;
  op.sub_indices = {1, 2};
  return op;
}

OperationConfig with(OperationConfig op, std::vector<std::string> fields) {
  op.fields = std::move(fields);
  return op;
}

OperationConfig on_object(const std::string& text, std::uint16_t index, std::uint8_t sub_index) {
  OperationConfig op;
  op.kind = text;
  op.index = index;
  op.sub_index = sub_index;
  return op;
}

OperationConfig ramp() {
  OperationConfig op = kind("ci402_ramp");
  op.index_offset = 0x43;
  return op;
}

OperationConfig by_sdo(OperationConfig op) {
  op.transport = "sdo";
  return op;
}

OperationConfig claw(const std::string& action) {
  OperationConfig op = kind("claw_action");
  op.action = action;
  return op;
}

OperationConfig two_leds() {
  OperationConfig op = with(kind("led_write"), {"a", "b", "c"});
  op.led_operation = "set_led";
  return op;
}

OperationConfig one_pump() {
  OperationConfig op = kind("pump_duty");
  op.pump_pdo_number = 1;
  op.index = 0x2001;
  op.rpdo_channels = {4};
  return op;
}

/// A load of RPDO 1, and what it is for: `last` delivers the change.
std::vector<Step> loaded_then(const std::string& culprit, Step last) {
  const std::string message = "RPDO shadow sync failed for " + culprit;
  last.image = Image::changed;
  return {{"read 5 0x2000/1", message}, {"read 5 0x2000/2", message}, {"read 5 0x2000/3", message},
          {"read 5 0x2001/4", message}, {"read 5 0x60FF/0", message}, std::move(last)};
}

constexpr const char* not_sent = "RPDO send failed";

std::string frame(const std::string& bytes) { return "rpdo 5 1 len 8: " + bytes; }

const std::vector<Row>& rows() {
  static const std::vector<Row> all{
      {"sdo_read",
       kind("sdo_read"),
       "io",
       {},
       ok("OK", {0x77}),
       {{"read 5 0x3000/0", "SDO read failed at 0x3000/0"}},
       ""},
      {"sdo_write",
       kind("sdo_write"),
       "io",
       {1, 2},
       ok("OK"),
       {{"write 5 0x3000/0 01 02", "SDO write failed at 0x3000/0"}},
       ""},
      {"read_multi",
       kind("read_multi"),
       "io",
       {},
       ok("OK", {0x78, 0x79}),
       {{"read 5 0x3000/1", "SDO read failed at 0x3000/1"},
        {"read 5 0x3000/2", "SDO read failed at 0x3000/2"}},
       ""},
      {"od_io_read",
       kind("od_io_read"),
       "io",
       {0, 0, 2},
       ok("OK", {0x12}),
       {{"read 5 0x2000/2", "SDO read failed at 0x2000/2"}},
       ""},
      {"od_io_write",
       kind("od_io_write"),
       "io",
       {0, 0x10, 9, 0x55},
       ok("OK"),
       {{"write 5 0x3000/9 55", "SDO write failed at 0x3000/9"}},
       ""},
      {"led_write",
       two_leds(),
       "io",
       {1, 2, 3, 0, 0, 0},
       ok("OK"),
       loaded_then("io", {frame("01 02 03 14 21 22 23 24"), not_sent}),
       frame("01 02 03 14 21 22 23 24")},
      {"auto_write",
       on_object("auto_write", 0x2000, 2),
       "io",
       {9},
       ok("OK"),
       loaded_then("io", {frame("11 09 13 14 21 22 23 24"), not_sent}),
       frame("11 09 13 14 21 22 23 24")},
      {"auto_write_of_an_object_that_no_rpdo_maps",
       on_object("auto_write", 0x3000, 0),
       "io",
       {9},
       ok("OK"),
       {{"write 5 0x3000/0 09", "SDO write failed at 0x3000/0"}},
       ""},
      {"pdo_write",
       with(kind("pdo_write"), {"a"}),
       "io",
       {9},
       ok("OK"),
       loaded_then("io", {frame("09 12 13 14 21 22 23 24"), not_sent}),
       frame("09 12 13 14 21 22 23 24")},
      {"pdo_patch",
       with(kind("pdo_patch"), {"b"}),
       "io",
       {9},
       ok("OK"),
       loaded_then("io", {frame("11 09 13 14 21 22 23 24"), not_sent}),
       frame("11 09 13 14 21 22 23 24")},
      {"bit_patch",
       with(kind("bit_patch"), {"a"}),
       "io",
       {0x0F, 0x02},
       ok("OK"),
       loaded_then("io", {frame("12 12 13 14 21 22 23 24"), not_sent}),
       frame("12 12 13 14 21 22 23 24")},
      {"bit_patch_by_sdo",
       by_sdo(with(kind("bit_patch"), {"a"})),
       "io",
       {0x0F, 0x02},
       ok("OK (SDO)"),
       {{"read 5 0x2000/1", "SDO read 0x2000/1 failed"},
        {"write 5 0x2000/1 12", "SDO write 0x2000/1 failed"}},
       ""},
      {"pdo_bit_patch",
       with(kind("pdo_bit_patch"), {"a"}),
       "io",
       {1, 7, 1},
       ok("OK"),
       loaded_then("io", {frame("91 12 13 14 21 22 23 24"), not_sent}),
       frame("91 12 13 14 21 22 23 24")},
      {"pdo_bit_patch_by_sdo",
       by_sdo(with(kind("pdo_bit_patch"), {"a"})),
       "io",
       {1, 7, 1},
       ok("OK (SDO)"),
       loaded_then("io", {"write 5 0x2000/1 91", "SDO write 0x2000/1 failed"}),
       frame("91 12 13 14 21 22 23 24")},
      {"ci402_enable",
       kind("ci402_enable"),
       "wheel",
       {},
       ok("Motor enabled"),
       {{"write 5 0x6060/0 00", "SDO write modes_of_operation failed"},
        {"write 5 0x6040/0 06 00", "SDO write controlword (shutdown) failed"},
        {"write 5 0x6040/0 0F 00", "SDO write controlword (enable) failed"}},
       ""},
      {"ci402_disable",
       kind("ci402_disable"),
       "wheel",
       {},
       ok("Motor disabled"),
       {{"write 5 0x6040/0 06 00", "SDO write controlword (disable) failed"}},
       ""},
      {"ci402_quick_stop",
       kind("ci402_quick_stop"),
       "wheel",
       {},
       ok("Quick stop sent"),
       {{"write 5 0x6040/0 02 00", "SDO write controlword (quick_stop) failed"}},
       ""},
      {"ci402_set_mode",
       kind("ci402_set_mode"),
       "wheel",
       {3},
       ok("Mode set to 3"),
       {{"write 5 0x6060/0 03", "SDO write modes_of_operation failed"}},
       ""},
      {"ci402_set_target",
       kind("ci402_set_target"),
       "wheel",
       {1, 0},
       ok("Target set via RPDO 0x60FF value=1"),
       loaded_then("wheel", {frame("11 12 13 14 01 00 00 00"), "RPDO send target 0x60FF failed"}),
       frame("11 12 13 14 01 00 00 00")},
      {"ci402_set_target_by_sdo",
       by_sdo(kind("ci402_set_target")),
       "wheel",
       {1, 0},
       ok("Target set via SDO 0x60FF value=1"),
       {{"write 5 0x60FF/0 01 00 00 00", "SDO write target 0x60FF failed"}},
       ""},
      {"ci402_ramp",
       ramp(),
       "wheel",
       {1, 0, 0, 0},
       ok("Ramp set to 1"),
       {{"write 5 0x6083/0 01 00 00 00", "SDO write 0x6083 failed"}},
       ""},
      {"claw_action_extend",
       claw("extend"),
       "claw",
       {},
       ok("Claw extend command sent"),
       {{"write 5 0x7060/0 03", "SDO write modes_of_operation (velocity) failed"},
        {"write 5 0x7040/0 06 00", "SDO write controlword (shutdown) failed", 3},
        {"write 5 0x7040/0 0F 00", "SDO write controlword (enable) failed", 3},
        {"write 5 0x2100/9 01", "SDO write claw extend command failed", 3}},
       ""},
      {"claw_action_home",
       claw("home"),
       "claw",
       {},
       ok("Claw home command sent"),
       {{"write 5 0x7060/0 06", "SDO write homing mode failed"},
        {"write 5 0x7040/0 0F 00", "SDO write controlword (homing clear) failed", 6},
        {"write 5 0x7040/0 1F 00", "SDO write controlword (start homing) failed", 6}},
       ""},
      {"claw_action_query",
       claw("query"),
       "claw",
       {},
       ok("OK", {1, 2}),
       {{"read 5 0x2100/1", "SDO read action_state failed"},
        {"read 5 0x2100/2", "SDO read position_state failed"}},
       ""},
      {"pump_duty",
       one_pump(),
       "io",
       {4, 0x99, 0},
       ok("Pump duty set"),
       loaded_then("io", {frame("11 12 13 99 21 22 23 24"), not_sent}),
       frame("11 12 13 99 21 22 23 24")},
      {"pump_duty_by_sdo",
       by_sdo(one_pump()),
       "io",
       {4, 0x99, 0},
       ok("Pump duty set"),
       {{"write 5 0x2001/4 99 00", "SDO write pump ch4 failed"}},
       ""},
  };
  return all;
}

class FailingCalls : public testing::TestWithParam<Row> {
 protected:
  /// A controller on a bus that nobody has used yet.
  struct Fresh {
    explicit Fresh(const Row& of) : row(of) {
      board.pdos = {{1,
                     "RPDO",
                     0,
                     {{0x2000, 1, 8, "a"},
                      {0x2000, 2, 8, "b"},
                      {0x2000, 3, 8, "c"},
                      {0x2001, 4, 8, "pump"},
                      {0x60FF, 0, 32, "velocity"}}}};
      board.device_od_map = {{"io", {"io", 0x2000, 0}},
                             {"wheel", {"ci402", 0x6040, 0}},
                             {"claw", {"claw", 0x7040, 0x2100}}};
      backend.objects = {{{0x2000, 1}, {0x11}},
                         {{0x2000, 2}, {0x12}},
                         {{0x2000, 3}, {0x13}},
                         {{0x2001, 4}, {0x14}},
                         {{0x60FF, 0}, {0x21, 0x22, 0x23, 0x24}},
                         {{0x3000, 0}, {0x77}},
                         {{0x3000, 1}, {0x78}},
                         {{0x3000, 2}, {0x79}},
                         {{0x2100, 1}, {1}},
                         {{0x2100, 2}, {2}}};
    }

    OperationResult run() {
      return controller.execute_configured_operation(row.op, row.device, row.payload);
    }

    /// What the next send of RPDO 1 shows of the image, without a change.
    Calls next_send() {
      backend.calls.clear();
      EXPECT_EQ(controller.execute_configured_operation(with(kind("pdo_patch"), {"a"}), "io", {}),
                ok("OK"));
      return backend.calls;
    }

    const Row& row;
    std::uint8_t node_id = 5;
    ScriptedBackend backend;
    TestPath path{backend};
    BoardConfig board;
    CanOpenNodeController controller{node_id, path.backend(), board};
  };

  static Calls calls_up_to(const Row& row, std::size_t count) {
    Calls calls;
    for (std::size_t position = 0; position < count; ++position) {
      calls.push_back(row.steps[position].call);
    }
    return calls;
  }

  static void expect_left(Fresh& fresh, const Step& failed_step) {
    EXPECT_EQ(fresh.controller.motor_mode(fresh.row.device), failed_step.mode);
    const Calls loads{"read 5 0x2000/1", "read 5 0x2000/2", "read 5 0x2000/3", "read 5 0x2001/4",
                      "read 5 0x60FF/0"};
    Calls expected = failed_step.image == Image::not_loaded ? loads : Calls();
    expected.push_back(failed_step.image == Image::changed ? fresh.row.changed
                                                           : frame("11 12 13 14 21 22 23 24"));
    EXPECT_EQ(fresh.next_send(), expected);
  }
};

TEST_P(FailingCalls, none_of_them_leaves_the_success_path_as_it_is_written) {
  Fresh fresh(GetParam());
  EXPECT_EQ(fresh.run(), GetParam().success);
  EXPECT_EQ(fresh.backend.calls, calls_up_to(GetParam(), GetParam().steps.size()));
}

TEST_P(FailingCalls, refused_each_ends_the_operation_with_its_message) {
  for (std::size_t position = 0; position < GetParam().steps.size(); ++position) {
    const Step& step = GetParam().steps[position];
    SCOPED_TRACE(step.call);
    Fresh fresh(GetParam());
    fresh.backend.serve(position);
    fresh.backend.refuse();
    EXPECT_EQ(fresh.run(), failed(step.message));
    EXPECT_EQ(fresh.backend.calls, calls_up_to(GetParam(), position + 1));
    expect_left(fresh, step);
  }
}

TEST_P(FailingCalls, exception_of_each_passes_to_the_caller) {
  for (std::size_t position = 0; position < GetParam().steps.size(); ++position) {
    const Step& step = GetParam().steps[position];
    SCOPED_TRACE(step.call);
    Fresh fresh(GetParam());
    fresh.backend.serve(position);
    fresh.backend.raise_exception();
    EXPECT_THROW(fresh.run(), BusException);
    EXPECT_EQ(fresh.backend.calls, calls_up_to(GetParam(), position + 1));
    expect_left(fresh, step);
  }
}

TEST_P(FailingCalls, images_are_locked_during_each_only_when_one_is_written) {
  Fresh fresh(GetParam());
  const bool writes_image = !GetParam().changed.empty();
  // Ended only when the operation has released what they wait for.
  std::vector<std::future<void>> others;
  fresh.backend.during_call = [&](const std::string& call) {
    SCOPED_TRACE(call);
    others.push_back(std::async(std::launch::async, [&] { touch_images(fresh.controller); }));
    EXPECT_TRUE(writes_image ? still_waits(others.back()) : is_done(others.back()));
  };
  EXPECT_EQ(fresh.run(), GetParam().success);
  EXPECT_EQ(others.size(), GetParam().steps.size());
}

INSTANTIATE_TEST_SUITE_P(all, FailingCalls, testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& row) { return row.param.name; });

TEST(FailingCallsTable, holds_every_kind) { expect_row_for_every_kind(rows()); }

}  // namespace
}  // namespace velmora_can_bridge

// Frames that would carry what nobody knows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "board_on_bus.hpp"
#include "lamp_board.hpp"
#include "support/node_on_bus.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t led_object = 0x2100;
constexpr const char* send_failed = "RPDO send failed";
constexpr const char* mode_asked_again =
    "the node's value of led_mode is not known (no answer to the requests before; the node is "
    "asked "
    "again in 500 ms)";
constexpr const char* mode_refused =
    "the node's value of led_mode is not known (abort 0x06010001, the object can only be written)";

BoardConfig led_board() {
  BoardConfig board;
  board.pdos = {{1,
                 "RPDO",
                 0,
                 {{led_object, 1, 8, "red"},
                  {led_object, 2, 8, "green"},
                  {led_object, 3, 8, "blue"},
                  {led_object, 4, 8, "led_mode"},
                  {led_object, 5, 16, "period"}}}};
  board.device_od_map["led"].base_index = led_object;
  board.device_od_map["wheel"] = {"ci402", 0x6040, 0};
  return board;
}

BoardFile led_file() {
  OperationConfig led;
  led.kind = "led_write";
  led.pdo_number = 1;
  led.led_operation = "set_color";
  led.fields = {"red", "green", "blue"};
  std::map<std::string, OperationConfig> operations{{"set_color", led}};
  led.led_operation = "set_mode";
  led.fields = {"led_mode", "period"};
  operations["set_mode"] = led;
  led.led_operation = "set_led";
  led.fields = {"red", "green", "blue", "led_mode", "period"};
  operations["set_led"] = led;
  OperationConfig bit;
  bit.kind = "pdo_bit_patch";
  bit.pdo_number = 1;
  bit.fields = {"led_mode"};
  bit.named = 1;
  bit.refresh_shadow = 1;
  operations["mode_bit"] = bit;
  bit.transport = "sdo";
  operations["mode_bit_by_sdo"] = bit;
  bit.fields = {"red"};
  operations["red_bit_by_sdo"] = bit;
  OperationConfig bits;
  bits.kind = "bit_patch";
  bits.pdo_number = 1;
  bits.field = "led_mode";
  operations["mode_bits"] = bits;
  bits.transport = "sdo";
  operations["mode_bits_by_sdo"] = bits;
  OperationConfig red;
  red.kind = "pdo_write";
  red.pdo_number = 1;
  red.field = "red";
  operations["set_red"] = red;
  red.fields = {"red", "no such field"};
  red.refresh_shadow = 1;
  operations["refresh_and_fail"] = red;
  operations["drive_mode"].kind = "ci402_set_mode";
  BoardFile file;
  file.nodes.push_back({0x10, led_board(), operations});
  return file;
}

class HeldBack : public testing::Test {
 protected:
  HeldBack() { NmtMaster(can0).send(NmtCommand::start, 0x10); }

  /// From now on nothing that the node sends arrives.
  void silence() {
    can0.set_fault_rule([](const CanFrame& frame) {
      return frame.id == 0x590 ? std::vector<CanDelivery>{} : std::vector<CanDelivery>{{frame}};
    });
  }

  void answer() { can0.set_fault_rule({}); }

  void set_access(std::uint8_t sub_index, ObjectAccess access, Bytes value) {
    led.node.device().add_object(led_object, sub_index, {access, std::move(value), false, 0});
  }

  const OperationReport& run(const std::string& operation, const Bytes& payload,
                             bool force = false) {
    sent.take();
    report = bridge.run("led", operation, payload, {Detail::transfers, force});
    return report;
  }

  std::string reason() const { return report.error ? report.error->text : ""; }

  /// Frames of RPDO 1 since the operation began.
  std::vector<Bytes> rpdos() {
    std::vector<Bytes> all;
    for (const CanFrame& frame : sent.take()) {
      if (frame.id == 0x210) {
        all.emplace_back(frame.data.begin(), frame.data.begin() + frame.length);
      }
    }
    return all;
  }

  InProcessBus can0{BusTime::simulated, "can0"};
  NodeOnBus led{can0, 0x10, led_board()};
  SentFrames sent{can0};
  Bridge bridge{sent, led_file()};
  OperationReport report;
  bool can0_is_full = false;
};

struct HeldBackCase {
  std::string name;
  std::string operation;
  Bytes payload;
  /// The field that would be carried unknown.
  std::string field;
  /// The message of the operation.
  std::string message = send_failed;
};

void PrintTo(const HeldBackCase& row, std::ostream* out) { *out << row.name; }

class HeldBackOperations : public HeldBack, public testing::WithParamInterface<HeldBackCase> {};

TEST_P(HeldBackOperations, are_not_sent_to_a_node_that_does_not_answer) {
  silence();
  run(GetParam().operation, GetParam().payload);
  EXPECT_FALSE(report.result.ok);
  EXPECT_EQ(report.result.message, GetParam().message);
  ASSERT_TRUE(report.error);
  EXPECT_EQ(report.error->kind, BusErrorKind::no_answer);
  EXPECT_THAT(reason(), testing::StartsWith("the node's value of " + GetParam().field +
                                            " is not known (no answer "));
  EXPECT_THAT(report.tolerated, SizeIs(5)) << "each field that could not be read";
  EXPECT_THAT(rpdos(), IsEmpty());
}

TEST_P(HeldBackOperations, are_explained_so) {
  silence();
  // A bridge of its own: the node of one that has asked in vain is asked again later.
  const Explanation explanation =
      Bridge(can0, led_file()).explain("led", GetParam().operation, GetParam().payload);
  run(GetParam().operation, GetParam().payload);
  EXPECT_EQ(explanation.result.message, report.result.message);
  ASSERT_TRUE(explanation.error);
  EXPECT_EQ(explanation.error->text, reason());
  EXPECT_EQ(explanation.transfers.back().transfer.error->text, reason());
}

TEST_P(HeldBackOperations, load_the_image_next_time) {
  silence();
  run(GetParam().operation, GetParam().payload);
  answer();
  bridge.poll(std::chrono::seconds(1));  // until a node that was silent is asked again
  run("set_red", {7});
  EXPECT_TRUE(report.result.ok);
  EXPECT_THAT(rpdos(), ElementsAre(Bytes{7, 0, 0, 0, 0, 0}));
}

TEST_P(HeldBackOperations, are_sent_when_the_node_answers) {
  EXPECT_TRUE(run(GetParam().operation, GetParam().payload).result.ok);
  EXPECT_TRUE(bridge.explain("led", GetParam().operation, GetParam().payload).result.ok);
}

TEST_P(HeldBackOperations, are_sent_when_everything_is_known) {
  run("set_led", {1, 2, 3, 1, 4, 0});
  silence();
  EXPECT_EQ(run(GetParam().operation, GetParam().payload).result.message,
            GetParam().message == send_failed ? "OK" : "SDO write 0x2100/4 failed");
  EXPECT_EQ(rpdos().size(), GetParam().message == send_failed ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(of, HeldBackOperations,
                         testing::Values(HeldBackCase{"colour", "set_color", {1, 2, 3}, "led_mode"},
                                         HeldBackCase{"mode", "set_mode", {1, 0, 0}, "red"},
                                         HeldBackCase{"bit", "mode_bit", {1}, "red"},
                                         HeldBackCase{"bit_by_sdo",
                                                      "mode_bit_by_sdo",
                                                      {1},
                                                      "led_mode",
                                                      "SDO write 0x2100/4 failed"}),
                         [](const testing::TestParamInfo<HeldBackCase>& row) {
                           return row.param.name;
                         });

TEST_F(HeldBack, bit_patch_after_a_refresh_that_nobody_answered) {
  silence();
  run("refresh_and_fail", {1, 2});
  EXPECT_EQ(report.result.message, "RPDO field not found: no such field");
  run("mode_bits", {1, 1});
  EXPECT_EQ(report.result.message, send_failed);
  EXPECT_EQ(reason(), "the node's value of red is not known (no answer within 500 ms)");
  EXPECT_THAT(rpdos(), IsEmpty());
}

TEST_F(HeldBack, bit_patch_that_writes_all_bits_knows_its_field_no_better) {
  set_access(4, ObjectAccess::write_only, {0});
  run("refresh_and_fail", {1, 2});
  run("mode_bits", {0xFF, 1});
  EXPECT_EQ(report.result.message, send_failed);
  EXPECT_EQ(reason(), mode_refused);
}

TEST_F(HeldBack, bit_patch_by_sdo_reads_what_it_changes) {
  EXPECT_TRUE(run("mode_bits_by_sdo", {1, 1}).result.ok);
  silence();
  run("set_color", {1, 2, 3});
  EXPECT_EQ(reason(), mode_asked_again) << "it has made nothing known";
}

TEST_F(HeldBack, bit_by_sdo_needs_its_own_field_alone) {
  set_access(4, ObjectAccess::write_only, {0});
  EXPECT_EQ(run("red_bit_by_sdo", {1}).result.message, "OK (SDO)");
  run("mode_bit_by_sdo", {1});
  EXPECT_EQ(reason(), mode_refused);
}

TEST_F(HeldBack, object_that_can_only_be_written_holds_the_others_back) {
  set_access(4, ObjectAccess::write_only, {0});
  run("set_color", {1, 2, 3});
  EXPECT_EQ(report.result.message, send_failed);
  EXPECT_EQ(reason(), mode_refused);
  EXPECT_EQ(report.error->kind, BusErrorKind::refused);
  EXPECT_EQ(report.error->node_id, 0x10);
  EXPECT_EQ(report.error->index, led_object);
  EXPECT_EQ(report.error->sub_index, 4);
  EXPECT_EQ(report.transfers.back().error->text, mode_refused);
  EXPECT_THAT(rpdos(), IsEmpty());
}

TEST_F(HeldBack, object_that_can_only_be_written_is_known_once_it_was_sent) {
  set_access(4, ObjectAccess::write_only, {0});
  // Only a load that goes on can send it: the first write of an RPDO reads everything.
  run("set_mode", {1, 0, 0});
  EXPECT_TRUE(report.result.ok);
  EXPECT_THAT(rpdos(), ElementsAre(Bytes{0, 0, 0, 1, 0, 0})) << "it writes what cannot be read";
  run("set_color", {1, 2, 3});
  EXPECT_TRUE(report.result.ok);
  EXPECT_THAT(rpdos(), ElementsAre(Bytes{1, 2, 3, 1, 0, 0}));
}

TEST_F(HeldBack, frame_that_the_bus_did_not_take_makes_nothing_known) {
  set_access(4, ObjectAccess::write_only, {0});
  can0.set_fault_rule([this](const CanFrame& frame) {
    const bool is_last_answer = frame.id == 0x590 && frame.data[3] == 5;
    can0_is_full = can0_is_full || is_last_answer;
    return std::vector<CanDelivery>{{frame}};
  });
  sent.take();
  BridgeSettings settings;
  settings.before_transfer = [this](const Transfer& transfer) {
    can0.set_state(transfer.kind == TransferKind::rpdo && can0_is_full ? CanStatus::queue_full
                                                                       : CanStatus::ok);
  };
  Bridge two(can0, led_file(), settings);
  EXPECT_FALSE(two.run("led", "set_mode", {1, 0, 0}).result.ok);
  can0.set_state(CanStatus::ok);
  can0_is_full = false;
  const OperationReport colour = two.run("led", "set_color", {1, 2, 3});
  ASSERT_TRUE(colour.error);
  EXPECT_EQ(colour.error->text, mode_refused);
}

TEST_F(HeldBack, force_sends_all_the_same) {
  silence();
  EXPECT_TRUE(run("set_color", {1, 2, 3}, true).result.ok);
  EXPECT_THAT(rpdos(), ElementsAre(Bytes{1, 2, 3, 0, 0, 0}));
  EXPECT_THAT(report.tolerated, SizeIs(5));
  EXPECT_TRUE(run("set_color", {4, 5, 6}).result.ok) << "what was sent is known";
  EXPECT_THAT(rpdos(), ElementsAre(Bytes{4, 5, 6, 0, 0, 0}));
}

TEST_F(HeldBack, forced_bit_by_sdo_makes_its_field_known) {
  set_access(4, ObjectAccess::write_only, {0});
  EXPECT_TRUE(run("mode_bit_by_sdo", {1}, true).result.ok);
  EXPECT_TRUE(run("set_color", {1, 2, 3}).result.ok);
}

TEST_F(HeldBack, explanation_with_force_sends_as_run_does) {
  silence();
  EXPECT_TRUE(bridge.explain("led", "set_color", {1, 2, 3}, true).result.ok);
  EXPECT_FALSE(bridge.explain("led", "set_color", {1, 2, 3}).result.ok) << "it has sent nothing";
}

TEST_F(HeldBack, restart_makes_unknown_what_was_known) {
  run("set_led", {1, 2, 3, 1, 4, 0});
  led.on_bus.boot();
  silence();
  run("set_color", {1, 2, 3});
  EXPECT_EQ(reason(), mode_asked_again);
}

TEST_F(HeldBack, plain_read_makes_nothing_known) {
  ASSERT_TRUE(bridge.read_object(0x10, led_object, 4));
  silence();
  run("set_color", {1, 2, 3});
  EXPECT_EQ(reason(), mode_asked_again);
}

/// The thread that is held back still has the images: nobody sends them before they are forgotten.
TEST_F(HeldBack, thread_without_refresh_does_not_send_what_was_held_back) {
  BridgeSettings settings;
  std::thread other;
  OperationReport red;
  std::atomic<bool> is_begun{false};
  Bridge* two_threads = nullptr;
  settings.after_transfer = [&](const Transfer& transfer) {
    const bool is_held_back = transfer.kind == TransferKind::rpdo && transfer.error;
    if (is_held_back && !other.joinable()) {
      other = std::thread([&] {
        is_begun = true;
        red = two_threads->run("led", "set_red", {9});
      });
      while (!is_begun) {
        std::this_thread::yield();
      }
    }
  };
  Bridge two(sent, led_file(), settings);
  two_threads = &two;
  silence();
  EXPECT_EQ(two.run("led", "set_color", {1, 2, 3}).result.message, send_failed);
  ASSERT_TRUE(other.joinable());
  other.join();
  EXPECT_EQ(red.result.message, "RPDO shadow sync failed for led") << "it had to load the image";
  EXPECT_THAT(rpdos(), IsEmpty());
}

TEST_F(HeldBack, what_an_exception_has_ended_is_in_doubt) {
  run("set_led", {1, 2, 3, 1, 4, 0});
  BridgeSettings settings;
  bool throws = false;
  settings.after_transfer = [&](const Transfer& transfer) {
    if (throws && transfer.kind == TransferKind::rpdo) {
      throw std::runtime_error("hook");
    }
  };
  Bridge two(sent, led_file(), settings);
  two.run("led", "set_led", {1, 2, 3, 1, 4, 0});
  throws = true;
  EXPECT_THROW(two.run("led", "set_led", {1, 2, 3, 1, 4, 0}), std::runtime_error);
  throws = false;
  silence();
  EXPECT_FALSE(two.run("led", "set_color", {1, 2, 3}).result.ok);
}

TEST_F(HeldBack, observers_are_told) {
  std::vector<std::string> told;
  bridge.add_observer([&](const BridgeEvent& event) { told.push_back(bridge_event_text(event)); });
  set_access(4, ObjectAccess::write_only, {0});
  run("set_color", {1, 2, 3});
  bridge.poll(std::chrono::milliseconds(0));
  ASSERT_FALSE(told.empty());
  EXPECT_THAT(told.back(), testing::HasSubstr(mode_refused));
}

TEST_F(HeldBack, frame_makes_all_images_of_its_node_forgotten) {
  BoardFile file = led_file();
  NodeConfig& config = file.nodes.front();
  config.board.pdos.push_back({2, "RPDO", 0, {{0x2200, 1, 8, "lamp"}, {0x6040, 0, 16, "word"}}});
  config.operations["enable"].kind = "ci402_enable";
  OperationConfig lamp;
  lamp.kind = "pdo_write";
  lamp.pdo_number = 2;
  lamp.field = "lamp";
  config.operations["set_lamp"] = lamp;
  led.node.device().add_object(0x2200, 1, {ObjectAccess::read_write, {0}, false, 0});
  led.node.device().add_object(0x6040, 0, {ObjectAccess::read_write, {0, 0}, false, 0});
  led.node.device().add_object(0x6060, 0, {ObjectAccess::read_write, {0}, false, 0});
  set_access(4, ObjectAccess::write_only, {0});
  Bridge two(can0, file);
  const auto lamp_frame = [&] {
    const OperationReport lit = two.run("led", "set_lamp", {5}, Detail::transfers);
    return lit.transfers.back().data;
  };
  EXPECT_TRUE(two.run("wheel", "enable", {}).result.ok);
  led.node.device().add_object(0x6040, 0, {ObjectAccess::read_write, {0, 0}, false, 0});
  EXPECT_EQ(lamp_frame(), (Bytes{5, 15, 0})) << "repeated";
  EXPECT_FALSE(two.run("led", "set_color", {1, 2, 3}).result.ok);
  EXPECT_EQ(lamp_frame(), (Bytes{5, 0, 0})) << "what the node reads back";
}

TEST_F(HeldBack, field_without_a_name_is_named_by_its_object) {
  BoardFile file = led_file();
  file.nodes.front().board.pdos.front().mappings[3].field.clear();
  set_access(4, ObjectAccess::write_only, {0});
  const OperationReport colour = Bridge(can0, file).run("led", "set_color", {1, 2, 3});
  ASSERT_TRUE(colour.error);
  EXPECT_EQ(colour.error->text,
            "the node's value of 0x2100/4 is not known (abort 0x06010001, the object can only be "
            "written)");
}

}  // namespace
}  // namespace velmora_can_bridge

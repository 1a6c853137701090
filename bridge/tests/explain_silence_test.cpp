// That explain sends nothing but reads, and leaves no trace.
#include <gtest/gtest.h>

#include "board_on_bus.hpp"
#include "every_variant.hpp"
#include "lamp_board.hpp"
#include "support/every_kind.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using Lines = std::vector<std::string>;

/// All frames on the bus but those of uploads, with their answers, of node 0x10.
class Listener {
 public:
  explicit Listener(CanChannel& channel) : endpoint_(channel.open({{0, 0}})) {}

  Lines frames() {
    Lines lines;
    CanFrame frame;
    while (endpoint_->receive(frame, std::chrono::nanoseconds(0)) == CanStatus::ok) {
      ++heard_;
      if (!is_of_an_upload(frame)) {
        lines.push_back(can_log_line({}, "can0", frame));
      }
    }
    return lines;
  }

  /// Those left out included.
  std::size_t heard() const { return heard_; }

 private:
  static bool is_of_an_upload(const CanFrame& frame) {
    const std::uint8_t command = frame.data[0];
    return frame.id == 0x590 ||
           (frame.id == 0x610 && (command == 0x40 || command == 0x60 || command == 0x70));
  }

  const std::unique_ptr<CanEndpoint> endpoint_;
  std::size_t heard_ = 0;
};

/// All images are loaded or none, and drives have modes of operation or not.
class ExplainSilence : public testing::TestWithParam<bool> {
 protected:
  static void begin(BoardOnBus& board) {
    if (GetParam()) {
      board.bridge.run("io", "pdo_write field by name", {1, 2});
      board.bridge.run("wheel", "ci402_set_mode", {3});
      board.bridge.run("wheel", "ci402_set_target rpdo", {1, 2});
      board.bridge.run("io", "led_write set_led", {1, 2, 3, 1, 0, 0});
    }
  }

  static Lines run(BoardOnBus& board, const OperationVariant& variant) {
    return lines_of(
        board.bridge.run(variant.device, variant.name, variant.payload, Detail::transfers)
            .transfers);
  }

  const BoardFile file = every_variant_file();
};

TEST_P(ExplainSilence, variants_are_of_every_kind) { expect_row_for_every_kind(every_variant()); }

TEST_P(ExplainSilence, nothing_but_uploads_is_on_the_bus) {
  BoardOnBus board(file);
  begin(board);
  Listener listener(board.nodes);
  for (const OperationVariant& variant : every_variant()) {
    SCOPED_TRACE(variant.name);
    board.bridge.explain(variant.device, variant.name, variant.payload);
    EXPECT_EQ(listener.frames(), Lines());
  }
  EXPECT_GT(listener.heard(), 50U) << "reads are made";
}

TEST_P(ExplainSilence, run_makes_the_transfers_that_it_makes_without) {
  for (const OperationVariant& variant : every_variant()) {
    SCOPED_TRACE(variant.name);
    BoardOnBus board(file);
    BoardOnBus twin(file);
    begin(board);
    begin(twin);
    board.bridge.explain(variant.device, variant.name, variant.payload);
    EXPECT_EQ(run(board, variant), run(twin, variant));
  }
}

/// One explanation leaves nothing behind for the next one either.
TEST_P(ExplainSilence, explanation_is_the_same_again) {
  for (const OperationVariant& variant : every_variant()) {
    SCOPED_TRACE(variant.name);
    BoardOnBus board(file);
    begin(board);
    const auto explain = [&] {
      return explanation_json(board.bridge.explain(variant.device, variant.name, variant.payload));
    };
    const std::string once = explain();
    EXPECT_EQ(explain(), once);
  }
}

INSTANTIATE_TEST_SUITE_P(with, ExplainSilence, testing::Bool(), [](const auto& param) {
  return std::string(param.param ? "images_loaded" : "nothing_loaded");
});

TEST(ExplainImages, image_that_was_not_loaded_is_loaded_by_the_run_again) {
  BoardOnBus board(lamp_file());
  board.bridge.explain("lamp", "set_level", {1});
  EXPECT_EQ(lines_of(board.bridge.run("lamp", "set_level", {1}, Detail::transfers).transfers),
            (Lines{"node 0x10  SDO read   0x2000/1 -> 00", "node 0x10  SDO read   0x2000/2 -> 00",
                   "node 0x10  RPDO 1     <- 01 00"}));
}

TEST(ExplainImages, boot_up_that_came_before_counts) {
  BoardOnBus board(lamp_file());
  board.bridge.run("lamp", "set_level", {1});
  board.nodes.open({})->send({0x710, 1, {0}}, std::chrono::nanoseconds(0));
  EXPECT_EQ(board.bridge.explain("lamp", "set_level", {2}).transfers.size(), 3U);
}

}  // namespace
}  // namespace velmora_can_bridge

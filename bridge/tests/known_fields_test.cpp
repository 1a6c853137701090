#include "known_fields.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <string>

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

NodeConfig two_field_node() {
  NodeConfig config;
  config.node_id = 0x10;
  config.board.pdos = {{1, "RPDO", 0, {{0x2000, 1, 8, "level"}, {0x6040, 0, 16, "controlword"}}}};
  config.board.device_od_map = {{"wheel", {"ci402", 0x6040, 0}}};
  return config;
}

/// Calls on one node whose images nobody has loaded, step by step.
class KnownFieldsTest : public testing::Test {
 protected:
  KnownFieldsTest() {
    write.kind = "pdo_write";
    write.pdo_number = 1;
    write.field = "level";
    refresh = write;
    refresh.refresh_shadow = 1;
    enable.kind = "ci402_enable";
  }

  ImageWatch begin(const OperationConfig& op, bool force = false) {
    return {operations.emplace_back(CalledOperation{config, wheel, name, op, payload}), known, 0,
            force};
  }

  static Transfer read(std::uint16_t index, std::uint8_t sub_index, bool is_done) {
    Transfer transfer{TransferKind::sdo_read, 0x10, index, sub_index, 0, {}, {}};
    if (!is_done) {
      transfer.error = BusError{};
      transfer.error->kind = BusErrorKind::no_answer;
      transfer.error->text = "silence";
    }
    return transfer;
  }

  static void load(ImageWatch& call, bool is_done) {
    call.note(read(0x2000, 1, is_done));
    call.note(read(0x6040, 0, is_done));
  }

  static Transfer frame() { return {TransferKind::rpdo, 0x10, 0, 0, 1, {5, 0, 0}, {}}; }

  static std::string answer(ImageWatch& call) {
    const std::optional<BusError> refusal = call.refusal(frame());
    return refusal ? refusal->text : "sent";
  }

  /// A call with a refresh that the node does not answer.
  std::string refreshed_in_vain() {
    ImageWatch call = begin(refresh);
    load(call, false);
    return answer(call);
  }

  static constexpr const char* unknown_word =
      "the node's value of controlword is not known (silence)";

  const NodeConfig config = two_field_node();
  const std::string wheel = "wheel";
  const std::string name = "operation";
  const Bytes payload{5};
  OperationConfig write;
  OperationConfig refresh;
  OperationConfig enable;
  std::deque<CalledOperation> operations;
  KnownFields known{config.board};
};

TEST_F(KnownFieldsTest, nothing_is_known_that_was_never_read) {
  ImageWatch call = begin(write);
  const auto refusal = call.refusal(frame());
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->text, "the node's value of controlword is not known (it was never read)");
  EXPECT_EQ(refusal->kind, BusErrorKind::refused);
}

TEST_F(KnownFieldsTest, load_that_has_failed_makes_nothing_known) {
  ImageWatch call = begin(write);
  call.note(read(0x2000, 1, true));
  call.note(read(0x6040, 0, false));
  EXPECT_THAT(known.unknown(1), ElementsAre(true, true));
}

TEST_F(KnownFieldsTest, load_of_another_image_makes_nothing_known) {
  ImageWatch call = begin(refresh);
  call.note(read(0x2000, 1, true));
  call.note(read(0x60FF, 0, true));
  call.note(read(0x6040, 0, true));
  EXPECT_THAT(known.unknown(1), ElementsAre(true, true));
}

TEST_F(KnownFieldsTest, refresh_makes_known_what_it_has_read) {
  ImageWatch call = begin(refresh);
  call.note(read(0x2000, 1, true));
  EXPECT_THAT(known.unknown(1), ElementsAre(true, true)) << "it is not over";
  call.note(read(0x6040, 0, false));
  EXPECT_THAT(known.unknown(1), ElementsAre(false, true));
}

TEST_F(KnownFieldsTest, refresh_keeps_what_is_known) {
  ImageWatch first = begin(write);
  load(first, true);
  EXPECT_EQ(refreshed_in_vain(), "sent");
}

TEST_F(KnownFieldsTest, refresh_after_a_forget_keeps_nothing) {
  ImageWatch first = begin(write);
  load(first, true);
  known.forget();
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

TEST_F(KnownFieldsTest, load_that_began_before_a_forget_is_not_kept_after_it) {
  ImageWatch first = begin(write);
  known.forget();
  load(first, true);
  EXPECT_EQ(answer(first), "sent") << "it ends as it would";
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

TEST_F(KnownFieldsTest, frame_that_began_before_a_forget_is_not_kept_after_it) {
  ImageWatch first = begin(write, true);
  known.forget();
  first.note(frame());
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

/// The controller loads an image that it has forgotten; so this one it has not.
TEST_F(KnownFieldsTest, frame_without_a_load_goes_out_while_images_are_to_be_forgotten) {
  ImageWatch first = begin(write);
  load(first, true);
  ImageWatch second = begin(write);
  known.forget();
  EXPECT_EQ(answer(second), "sent");
}

TEST_F(KnownFieldsTest, mirrored_word_is_known_once_the_operation_goes_on) {
  ImageWatch drive = begin(enable);
  drive.note({TransferKind::sdo_write, 0x10, 0x6040, 0, 0, {15, 0}, {}});
  EXPECT_EQ(refreshed_in_vain(), unknown_word) << "it may not stand in the image yet";
  drive.finish();
  EXPECT_EQ(refreshed_in_vain(), "sent");
}

TEST_F(KnownFieldsTest, mirrored_word_is_forgotten) {
  ImageWatch drive = begin(enable);
  drive.note({TransferKind::sdo_write, 0x10, 0x6040, 0, 0, {15, 0}, {}});
  drive.finish();
  known.forget();
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

TEST_F(KnownFieldsTest, word_that_was_mirrored_across_a_forget_is_not_known) {
  ImageWatch drive = begin(enable);
  drive.note({TransferKind::sdo_write, 0x10, 0x6040, 0, 0, {15, 0}, {}});
  known.forget();
  drive.finish();
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

TEST_F(KnownFieldsTest, word_that_the_node_refused_is_not_known) {
  ImageWatch drive = begin(enable);
  drive.note({TransferKind::sdo_write, 0x10, 0x6040, 0, 0, {15, 0}, BusError{}});
  drive.finish();
  EXPECT_EQ(refreshed_in_vain(), unknown_word);
}

TEST_F(KnownFieldsTest, word_that_reaches_a_part_of_its_field_leaves_it_unknown) {
  known.mirrored(0x6040, 1, known.age());
  EXPECT_THAT(known.unknown(1), ElementsAre(true, true));
}

TEST_F(KnownFieldsTest, copy_learns_by_itself) {
  KnownFields copy(known);
  copy.sent(1, copy.age());
  EXPECT_THAT(copy.unknown(1), ElementsAre(false, false));
  EXPECT_THAT(known.unknown(1), ElementsAre(true, true));
}

TEST_F(KnownFieldsTest, changes_are_counted_where_there_are_any) {
  known.sent(1, known.age());
  const std::uint64_t once = known.changes();
  known.sent(1, known.age());
  EXPECT_EQ(known.changes(), once);
}

}  // namespace
}  // namespace velmora_can_bridge

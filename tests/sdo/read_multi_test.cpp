#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

class ReadMulti : public ControllerTest {
 protected:
  ReadMulti() {
    op.kind = "read_multi";
    op.index = 0x1018;
    op.sub_index = 99;  // read by other kinds, never by this one
    op.sub_indices = {1, 2, 3};
  }
};

TEST_F(ReadMulti, joins_the_pieces_in_list_order) {
  backend.answer_read({1, 2, 3, 4});
  backend.answer_read({5, 6, 7, 8});
  backend.answer_read({9, 10, 11, 12});
  EXPECT_EQ(run(), ok("OK", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(backend.calls,
            (std::vector<std::string>{"read 5 0x1018/1", "read 5 0x1018/2", "read 5 0x1018/3"}));
}

TEST_F(ReadMulti, stops_at_the_first_refusal_with_no_data) {
  backend.answer_read({1, 2, 3, 4});
  backend.refuse({9});
  EXPECT_EQ(run(), failed("SDO read failed at 0x1018/2"));
  EXPECT_EQ(backend.calls, (std::vector<std::string>{"read 5 0x1018/1", "read 5 0x1018/2"}));
}

TEST_F(ReadMulti, empty_list_succeeds_without_a_bus_call) {
  op.sub_indices = {};
  EXPECT_EQ(run(), ok("OK"));
  EXPECT_TRUE(backend.calls.empty());
}

TEST_F(ReadMulti, piece_without_bytes_adds_nothing) {
  backend.answer_read({1});
  backend.answer_read({});
  backend.answer_read({3});
  EXPECT_EQ(run(), ok("OK", {1, 3}));
}

TEST_F(ReadMulti, reads_a_duplicate_again) {
  op.sub_indices = {2, 2};
  backend.answer_read({1});
  backend.answer_read({9});
  EXPECT_EQ(run(), ok("OK", {1, 9}));
  EXPECT_EQ(backend.calls, (std::vector<std::string>{"read 5 0x1018/2", "read 5 0x1018/2"}));
}

TEST_F(ReadMulti, ignores_device_and_payload) {
  op.sub_indices = {0};
  backend.answer_read({3});
  EXPECT_EQ(run({9}, "nobody"), ok("OK", {3}));
}

TEST_F(ReadMulti, node_id_is_read_afresh_for_each_piece) {
  struct Renaming : ScriptedBackend {
    explicit Renaming(std::uint8_t& id) : id_(id) {}
    bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                  Bytes& data) override {
      ++id_;
      return ScriptedBackend::sdo_read(node_id, index, sub_index, data);
    }
    std::uint8_t& id_;
  } renaming(node_id);
  CanOpenNodeController other(node_id, renaming, board);
  other.execute_configured_operation(op, "device", {});
  EXPECT_EQ(renaming.calls,
            (std::vector<std::string>{"read 5 0x1018/1", "read 6 0x1018/2", "read 7 0x1018/3"}));
}

}  // namespace
}  // namespace velmora_can_bridge

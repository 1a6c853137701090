#include <gmock/gmock.h>

#include "command_line_fixture.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

using Strings = std::vector<std::string>;

constexpr const char* slow_lamp_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      lamp: {base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: level}
          - {index: 0x2000, sub_index: 2, bit_length: 8, field: mode}
    operations:
      set_level: {kind: pdo_patch, pdo_number: 1, field: level, refresh_shadow: 1}
      read_level: {kind: sdo_read, index: 0x2000, sub_index: 1}
      write_level: {kind: sdo_write, index: 0x2000, sub_index: 1, data_type: u8}
  - node_id: 0x11
    pdos:
      - {number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}
)";

constexpr CanFrame alarm{0x7FF, 0, {}};

/// The user interrupts the program while it is on a bus without nodes, but for those of the test.
class Interruption : public CommandLine {
 protected:
  Interruption() : path(write_file("lamp.yaml", slow_lamp_board)) {
    plug_in();
    start = listener->now();
  }

  /// The user does it so long after the start.
  void interrupt_after(milliseconds time) {
    can0.set_fault_rule([time](const CanFrame& frame) {
      return std::vector<CanDelivery>{{frame, time}};
    });
    listener->send(alarm, nanoseconds(0));
    can0.set_fault_rule({});
  }

  /// The user does it when the frame of that number, counted from 1, is on its way. Answers of node
  /// 0x10 come so late.
  void interrupt_at_frame(int number, milliseconds lateness = milliseconds(0)) {
    can0.set_fault_rule([this, number, lateness](const CanFrame& frame) {
      ++passed;
      interrupted = interrupted || passed == number;
      return std::vector<CanDelivery>{{frame, frame.id == 0x590 ? lateness : milliseconds(0)}};
    });
  }

  /// The frames that have passed, without times.
  Strings frames() {
    Strings lines;
    CanFrame frame;
    while (listener->receive(frame, nanoseconds(0)) == CanStatus::ok) {
      const std::string line = can_log_line({}, "can0", frame);
      lines.push_back(line.substr(line.rfind(' ') + 1));
    }
    return lines;
  }

  milliseconds elapsed() const {
    return std::chrono::duration_cast<milliseconds>(listener->now() - start);
  }

  std::string path;
  int passed = 0;
  const std::unique_ptr<CanEndpoint> listener = can0.open({{0, 0}});
  const std::unique_ptr<CanEndpoint> user =
      can0.open({{alarm.id}}, [this](const CanFrame& /*frame*/,
                                     std::vector<CanFrame>& /*answers*/) { interrupted = true; });
  std::chrono::steady_clock::time_point start;
};

const std::string waits_for_level =
    "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object 0x2000/1, "
    "at most 400 ms\n";
const std::string not_listening =
    "velmora-can-bridge: interrupted; not listening for the late answer of node 0x10: a command "
    "that follows at once may take it for its own\n";

TEST_F(Interruption, of_a_refresh_at_a_silent_node_lets_one_transfer_end_and_sends_no_rpdo) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"run", "--bus", "can0", path, "lamp", "set_level", "1"}), ExitStatus::interrupted);
  EXPECT_EQ(err, waits_for_level +
                     "failed: RPDO send failed (interrupted; no answer within 500 ms)\n" +
                     not_listening);
  EXPECT_THAT(frames(), ElementsAre("610#4000200100000000", "610#8000200100000405"));
  EXPECT_EQ(elapsed(), milliseconds(500));
}

TEST_F(Interruption, of_a_quarantine_ends_at_once) {
  interrupt_after(milliseconds(700));
  EXPECT_EQ(run({"run", "--bus", "can0", path, "lamp", "set_level", "1"}), ExitStatus::interrupted);
  EXPECT_EQ(err,
            "velmora-can-bridge: interrupted\n"
            "velmora-can-bridge: failed on the way: node 0x10, object 0x2000/1: no answer within "
            "500 ms\n"
            "failed: RPDO send failed (interrupted)\n" +
                not_listening);
  EXPECT_THAT(frames(), ElementsAre("610#4000200100000000", "610#8000200100000405"));
  EXPECT_LE(elapsed(), milliseconds(720));
}

TEST_F(Interruption, of_run_has_status_and_reason_in_json) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"run", "--json", "--bus", "can0", path, "lamp", "write_level", "1"}),
            ExitStatus::interrupted);
  EXPECT_EQ(out, R"({"operation":"write_level","device":"lamp","ok":false,"code":"interrupted",)"
                 R"("data":[],"message":"SDO write failed at 0x2000/1","reason":"interrupted; )"
                 R"(no answer within 500 ms; whether the node has taken the value is unknown"})"
                 "\n");
}

TEST_F(Interruption, of_a_read_at_a_silent_node_lets_it_end) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"sdo", "read", "0x10", "0x2000", "1", "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(err, waits_for_level +
                     "failed: SDO read of 0x2000/1 on node 0x10 (interrupted; no answer within 500 "
                     "ms)\n" +
                     not_listening);
  EXPECT_THAT(frames(), ElementsAre("610#4000200100000000", "610#8000200100000405"));
  EXPECT_EQ(elapsed(), milliseconds(500));
}

TEST_F(Interruption, of_a_write_at_a_silent_node_tells_that_the_outcome_is_unknown) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"sdo", "write", "0x10", "0x2000", "1", "u8:1", "--bus", "can0"}),
            ExitStatus::interrupted);
  EXPECT_EQ(err, waits_for_level +
                     "failed: SDO write of 0x2000/1 on node 0x10 (interrupted; no answer within "
                     "500 ms; whether the node has taken the value is unknown)\n" +
                     not_listening);
  EXPECT_THAT(frames(), ElementsAre("610#2F00200101000000", "610#8000200100000405"));
  EXPECT_EQ(elapsed(), milliseconds(500));
}

TEST_F(Interruption, of_sdo_has_status_and_reason_in_json) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"sdo", "write", "0x10", "0x2000", "1", "u8:1", "--bus", "can0", "--json"}),
            ExitStatus::interrupted);
  EXPECT_EQ(out, R"({"node_id":16,"index":8192,"sub_index":1,"ok":false,"code":"interrupted",)"
                 R"("data":[1],"reason":"interrupted; no answer within 500 ms; )"
                 R"(whether the node has taken the value is unknown"})"
                 "\n");
}

TEST_F(Interruption, of_a_check_at_a_silent_node_lets_one_transfer_end) {
  interrupt_after(milliseconds(100));
  EXPECT_EQ(run({"check", path, "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(err,
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x1400/1, at most 400 ms\n" +
                not_listening);
  EXPECT_THAT(out, EndsWith("node 0x10: 0 differences in 1 PDO, not all compared\n"
                            "  not compared: RPDO 1 and all that follows: 0x1400/1: interrupted; "
                            "no answer within 500 ms\n"
                            "node 0x11: 0 differences in 1 PDO, not all compared\n"
                            "  not compared: RPDO 1 and all that follows: 0x1400/1: "
                            "interrupted\n"));
  EXPECT_THAT(frames(), ElementsAre("610#4000140100000000", "610#8000140100000405"));
  EXPECT_EQ(elapsed(), milliseconds(500));
}

TEST_F(Interruption, while_listening_for_a_late_answer_ends_it_and_says_so) {
  interrupt_after(milliseconds(700));
  EXPECT_EQ(run({"sdo", "write", "0x10", "0x2000", "1", "u8:1", "--bus", "can0"}),
            ExitStatus::no_answer)
      << "the transfer had failed before";
  EXPECT_EQ(err,
            "failed: SDO write of 0x2000/1 on node 0x10 (no answer within 500 ms; whether the "
            "node has taken the value is unknown)\n" +
                not_listening);
  EXPECT_LE(elapsed(), milliseconds(730));
}

TEST_F(Interruption, before_the_first_transfer_sends_nothing) {
  interrupted = true;
  for (const Strings& arguments :
       std::vector<Strings>{{"run", "--bus", "can0", path, "lamp", "set_level", "1"},
                            {"sdo", "read", "0x10", "0x2000", "1", "--bus", "can0"},
                            {"sdo", "write", "0x10", "0x2000", "1", "u8:1", "--bus", "can0"},
                            {"check", path, "--bus", "can0"}}) {
    EXPECT_EQ(run(arguments), ExitStatus::interrupted) << arguments.front();
    EXPECT_THAT(out + err, testing::HasSubstr("interrupted")) << arguments.front();
    EXPECT_THAT(err, testing::Not(testing::HasSubstr("velmora-can-bridge: "))) << arguments.front();
  }
  EXPECT_THAT(frames(), IsEmpty());
  EXPECT_EQ(elapsed(), milliseconds(0));
}

TEST_F(Interruption, before_the_answer_does_not_undo_a_success) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({7}));
  interrupt_at_frame(1, milliseconds(300));
  EXPECT_EQ(run({"run", "--bus", "can0", path, "lamp", "write_level", "9"}), ExitStatus::success);
  EXPECT_EQ(err,
            "velmora-can-bridge: interrupted; waiting for the answer of node 0x10 about object "
            "0x2000/1, at most 480 ms\n");
  EXPECT_EQ(out, "ok: OK\n");
  EXPECT_EQ(elapsed(), milliseconds(300));
  EXPECT_EQ(lamp.node.device().object_value(0x2000, 1), std::vector<std::uint8_t>{9});
}

TEST_F(Interruption, before_a_refusal_keeps_the_abort_code) {
  NodeOnBus lamp(can0, 0x10);
  interrupt_at_frame(1, milliseconds(300));
  EXPECT_EQ(run({"sdo", "read", "0x10", "0x2000", "1", "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_THAT(
      err, EndsWith("failed: SDO read of 0x2000/1 on node 0x10 (interrupted; abort 0x06020000, no "
                    "object at this index)\n"));
}

TEST_F(Interruption, between_the_transfers_of_an_operation_begins_no_other) {
  const BoardConfig pdos = load_board_file(path).file->nodes.front().board;
  NodeOnBus lamp(can0, 0x10, pdos);
  frames();
  interrupt_at_frame(2);
  EXPECT_EQ(run({"run", "--bus", "can0", path, "lamp", "set_level", "1"}), ExitStatus::interrupted);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "failed: RPDO send failed (interrupted)\n");
  EXPECT_THAT(frames(), ElementsAre("610#4000200100000000", "590#4F00200100000000"));
}

TEST_F(Interruption, between_two_segments_gives_the_transfer_up) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of(std::vector<std::uint8_t>(21, 0x55)));
  frames();
  interrupt_at_frame(4);
  EXPECT_EQ(run({"sdo", "read", "0x10", "0x2000", "1", "--bus", "can0"}), ExitStatus::interrupted);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "failed: SDO read of 0x2000/1 on node 0x10 (interrupted)\n");
  const Strings passed_frames = frames();
  ASSERT_EQ(passed_frames.size(), 5U);
  EXPECT_EQ(passed_frames[3], "590#0055555555555555");
  EXPECT_THAT(passed_frames[4], testing::StartsWith("610#80002001"));
}

}  // namespace
}  // namespace velmora_can_bridge

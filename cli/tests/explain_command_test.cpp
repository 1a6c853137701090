#include <gmock/gmock.h>

#include "command_line_fixture.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* lamp_board = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      lamp: {base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings: [{index: 0x2000, sub_index: 1, bit_length: 16, field: level}]
    operations:
      set_level: {kind: pdo_write, pdo_number: 1, field: level}
      refresh_level: {kind: pdo_write, pdo_number: 1, field: level, refresh_shadow: 1}
      write_level: {kind: sdo_write, index: 0x2000, sub_index: 1, data_type: u16}
      read_nothing: {kind: sdo_read, index: 0x5FFF}
)";

class ExplainOnBus : public CommandLine {
 protected:
  ExplainOnBus() : path(write_file("lamp.yaml", lamp_board)) { plug_in(); }

  ExitStatus explain_lamp(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"explain", "--bus", "can0", path, "lamp"});
    return run(arguments);
  }

  /// The frames on the bus so far, without times.
  std::vector<std::string> frames() {
    std::vector<std::string> lines;
    CanFrame frame;
    while (listener->receive(frame, nanoseconds(0)) == CanStatus::ok) {
      const std::string line = can_log_line({}, "can0", frame);
      lines.push_back(line.substr(line.rfind(' ') + 1));
    }
    return lines;
  }

  /// The user interrupts the program when the first frame is on its way.
  void interrupt_at_the_first_frame() {
    can0.set_fault_rule([this](const CanFrame& frame) {
      interrupted = true;
      return std::vector<CanDelivery>{{frame}};
    });
  }

  std::string path;
  const std::unique_ptr<CanEndpoint> listener = can0.open({{0, 0}});
};

TEST_F(ExplainOnBus, tells_what_run_would_do_and_only_reads) {
  NodeOnBus lamp(can0, 0x10);
  lamp.node.device().add_object(0x2000, 1, object_of({0x34, 0x12}));
  frames();
  EXPECT_EQ(explain_lamp({"set_level", "u16:5"}), ExitStatus::success);
  EXPECT_EQ(out,
            "lamp set_level on node 0x10; nothing is written or sent\n"
            "read         lamp 0x2000/1 (level) = 34 12 (4660)\n"
            "would send   RPDO 1, COB-ID 0x0210: 34 12 -> 05 00\n"
            "               level 4660 -> 5, lamp 0x2000/1\n"
            "would answer ok: OK\n");
  EXPECT_EQ(err, "");
  EXPECT_EQ(frames(), (std::vector<std::string>{"610#4000200100000000", "590#4B00200134120000"}));
}

TEST_F(ExplainOnBus, without_a_bus_nodes_are_simulated) {
  EXPECT_EQ(run({"explain", path, "lamp", "write_level", "u16:5"}), ExitStatus::success);
  EXPECT_EQ(out,
            "lamp write_level on node 0x10; nothing is written or sent\n"
            "would write  lamp 0x2000/1 (level) = 05 00 (5)\n"
            "would answer ok: OK\n");
  EXPECT_THAT(opened, IsEmpty());
}

TEST_F(ExplainOnBus, json_has_the_explanation_and_the_word_of_the_exit_status) {
  EXPECT_EQ(explain_lamp({"--json", "write_level", "u16:5"}), ExitStatus::success);
  EXPECT_EQ(out, R"({"operation":"write_level","device":"lamp","node_id":16,"ok":true,"data":[],)"
                 R"("message":"OK","transfers":[{"kind":"sdo_write","index":8192,"sub_index":1,)"
                 R"("device":"lamp","field":"level","operations":["write_level"],)"
                 R"("data":[5,0],"value":5}],"code":"done"})"
                 "\n");
}

TEST_F(ExplainOnBus, candump_prints_the_frames_alone) {
  EXPECT_EQ(explain_lamp({"--candump", "write_level", "u16:5"}), ExitStatus::success);
  EXPECT_EQ(out, "(0000000000.000000) can0 610#2B00200105000000\n");
}

TEST_F(ExplainOnBus, candump_of_simulated_nodes_names_an_interface) {
  EXPECT_EQ(run({"explain", "--candump", path, "lamp", "write_level", "u16:5"}),
            ExitStatus::success);
  EXPECT_TRUE(is_can_log_line(out.substr(0, out.find('\n')))) << out;
}

TEST_F(ExplainOnBus, candump_and_json_exclude_each_other) {
  EXPECT_EQ(explain_lamp({"--candump", "--json", "write_level", "u16:5"}), ExitStatus::bad_input);
  EXPECT_EQ(out, "");
  EXPECT_THAT(err, HasSubstr("--candump"));
  EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(ExplainOnBus, payload_that_the_operation_refuses_is_a_failure) {
  EXPECT_EQ(explain_lamp({"write_level", "--raw"}), ExitStatus::operation_failed);
  EXPECT_THAT(out, HasSubstr("would fail: payload too short for sdo_write\n"));
}

TEST_F(ExplainOnBus, refusal_has_abort_code_and_words) {
  NodeOnBus lamp(can0, 0x10);
  EXPECT_EQ(explain_lamp({"read_nothing"}), ExitStatus::operation_failed);
  EXPECT_THAT(out, HasSubstr("would fail: SDO read failed at 0x5FFF/0 (abort 0x06020000, no object "
                             "at this index)\n"));
}

TEST_F(ExplainOnBus, silence_has_its_exit_status) {
  EXPECT_EQ(explain_lamp({"--json", "set_level", "u16:5", "--timeout", "20"}),
            ExitStatus::no_answer);
  EXPECT_THAT(out, HasSubstr(R"("reason":"no answer within 20 ms")"));
  EXPECT_THAT(out, HasSubstr(R"("code":"no_answer")"));
}

TEST_F(ExplainOnBus, interface_that_is_down_has_its_exit_status) {
  can0.set_state(CanStatus::interface_down);
  EXPECT_EQ(explain_lamp({"set_level", "u16:5"}), ExitStatus::bus_fault);
  EXPECT_THAT(out, HasSubstr("interface can0 is down"));
}

TEST_F(ExplainOnBus, interface_that_is_down_is_told_where_nothing_is_read) {
  can0.set_state(CanStatus::interface_down);
  EXPECT_EQ(explain_lamp({"write_level", "u16:500", "--json"}), ExitStatus::bus_fault);
  EXPECT_THAT(out, HasSubstr(R"("code":"bus_fault")"));
  EXPECT_THAT(err, HasSubstr("can0"));
}

TEST_F(ExplainOnBus, candump_of_a_failure_says_what_would_fail) {
  NodeOnBus lamp(can0, 0x10);
  EXPECT_EQ(explain_lamp({"read_nothing", "--candump"}), ExitStatus::operation_failed);
  EXPECT_EQ(out, "(0000000000.000000) can0 610#40FF5F0000000000\n");
  EXPECT_THAT(err, HasSubstr("would fail: SDO read failed at 0x5FFF/0 (abort 0x06020000, "));
}

TEST_F(ExplainOnBus, mistyped_names_are_refused_with_the_right_ones_and_nothing_is_sent) {
  EXPECT_EQ(run({"explain", "--bus", "can0", path, "Lamp", "set_level"}), ExitStatus::bad_input);
  const std::string of_device = err;
  EXPECT_EQ(run({"run", "--bus", "can0", path, "Lamp", "set_level"}), ExitStatus::bad_input);
  EXPECT_EQ(of_device, err) << "as run does";
  EXPECT_THAT(of_device, HasSubstr("Lamp"));
  EXPECT_EQ(explain_lamp({"set_lewel"}), ExitStatus::bad_input);
  EXPECT_THAT(err, HasSubstr("set_lewel"));
  EXPECT_EQ(out, "");
  EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(ExplainOnBus, file_that_does_not_load_is_bad_input) {
  EXPECT_EQ(run({"explain", write_file("bad.yaml", "nodes: 1\n"), "lamp", "set_level"}),
            ExitStatus::bad_input);
  EXPECT_EQ(out, "");
}

TEST_F(ExplainOnBus, interrupted_before_a_read_sends_nothing) {
  interrupted = true;
  EXPECT_EQ(explain_lamp({"set_level", "u16:5"}), ExitStatus::interrupted);
  EXPECT_THAT(out, HasSubstr("(interrupted)\n"));
  EXPECT_THAT(frames(), IsEmpty());
}

TEST_F(ExplainOnBus, interrupted_in_a_read_is_told) {
  interrupt_at_the_first_frame();
  EXPECT_EQ(explain_lamp({"--json", "set_level", "u16:5"}), ExitStatus::interrupted);
  EXPECT_THAT(out, HasSubstr(R"("reason":"interrupted; no answer within 500 ms")"));
  EXPECT_THAT(out, HasSubstr(R"("code":"interrupted")"));
  EXPECT_THAT(err, HasSubstr("interrupted; waiting for the answer of node 0x10 about object "
                             "0x2000/1"));
}

/// It goes on without what it could not read, but does not take an interruption for that.
TEST_F(ExplainOnBus, interrupted_in_the_read_of_a_refresh_is_told) {
  interrupt_at_the_first_frame();
  EXPECT_EQ(explain_lamp({"refresh_level", "u16:5"}), ExitStatus::interrupted);
  EXPECT_THAT(out, HasSubstr("would fail: RPDO send failed (interrupted; no answer within 500 "
                             "ms)\n"));
}

TEST_F(ExplainOnBus, names_are_escaped) {
  const std::string odd = write_file("odd.yaml", R"(
nodes:
  - node_id: 0x10
    device_od_map:
      "la\u2028mp": {base_index: 0x2000}
    operations:
      read: {kind: sdo_read, index: 0x1000}
)");
  EXPECT_EQ(run({"explain", odd, "la\xE2\x80\xA8mp", "read"}), ExitStatus::success);
  EXPECT_THAT(out, StartsWith("la\\u2028mp read on node 0x10; nothing is written or sent\n"));
}

}  // namespace
}  // namespace velmora_can_bridge

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

constexpr const char* compared_board = R"(
nodes:
  - node_id: 0x10
    pdos:
      - {number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}
      - {number: 1, direction: TPDO, mappings: [{index: 0x2001, bit_length: 8}]}
  - node_id: 0x11
    pdos:
      - {number: 2, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}
)";

/// What the devices have instead, in one of the cases.
constexpr const char* other_board_text = R"(
nodes:
  - node_id: 0x10
    pdos:
      - {number: 1, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}
      - {number: 1, direction: TPDO, cob_id: 0x333, mappings: [{index: 0x2002, bit_length: 8}]}
  - node_id: 0x11
    pdos:
      - {number: 3, direction: RPDO, mappings: [{index: 0x2000, bit_length: 8}]}
)";

/// Passes on to a bus that outlives it.
class SharedBus : public CanChannel {
 public:
  explicit SharedBus(InProcessBus& bus) : bus_(&bus) {}
  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return bus_->open(filters);
  }

 private:
  InProcessBus* const bus_;
};

class CheckCommand : public testing::Test {
 protected:
  CheckCommand() {
    const std::string test = testing::UnitTest::GetInstance()->current_test_info()->name();
    folder = std::filesystem::path(testing::TempDir()) / ("velmora_check_" + test);
    std::filesystem::create_directories(folder);
    board = (folder / "board.yaml").string();
    std::ofstream(board) << compared_board;
    file_line = board + ": 2 nodes, 0 devices, 3 PDOs, 0 operations; 0 errors, 0 warnings\n";
  }

  void TearDown() override { std::filesystem::remove_all(folder); }

  /// Puts simulated nodes of that board file on the bus.
  void attach(const std::string& text) {
    const LoadedBoard devices = parse_board(text);
    for (const NodeConfig& config : devices.file.value().nodes) {
      nodes.push_back(std::make_unique<SimulatedBusNode>(config.node_id, config.board));
      attached.push_back(std::make_unique<InProcessNode>(bus, *nodes.back()));
      attached.back()->boot();
    }
  }

  /// Gives an RPDO of one of the nodes transmission type 1.
  void make_synchronous(std::size_t node, std::uint16_t communication_record) {
    nodes.at(node)->device().add_object(communication_record, 2,
                                        {ObjectAccess::read_only, {1}, false, 0});
  }

  ExitStatus check(const std::vector<std::string>& more = {"--bus", "can7"}) {
    std::vector<std::string> arguments{"check", board};
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::ostringstream out_stream;
    std::ostringstream err_stream;
    CommandLineHost host{out_stream, err_stream, false, {}, {}, &interrupted};
    host.open_interface = [&](const std::string& interface) {
      opened = interface;
      return std::make_unique<SharedBus>(bus);
    };
    const ExitStatus status = run_command_line(arguments, host);
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }

  std::filesystem::path folder;
  std::string board;
  std::string file_line;
  InProcessBus bus{BusTime::simulated, "can7"};
  std::vector<std::unique_ptr<SimulatedBusNode>> nodes;
  std::vector<std::unique_ptr<InProcessNode>> attached;
  std::atomic<bool> interrupted{false};
  std::string opened;
  std::string out;
  std::string err;
};

TEST_F(CheckCommand, tells_that_all_match) {
  attach(compared_board);
  EXPECT_EQ(check(), ExitStatus::success);
  EXPECT_EQ(opened, "can7");
  EXPECT_EQ(out, file_line + "node 0x10: 2 PDOs match\nnode 0x11: 1 PDO matches\n");
  EXPECT_EQ(err, "");
}

TEST_F(CheckCommand, lists_every_difference) {
  attach(other_board_text);
  EXPECT_EQ(check(), ExitStatus::operation_failed);
  EXPECT_EQ(
      out,
      file_line +
          "node 0x10: 2 differences in 2 PDOs\n"
          "node 0x11: 1 difference in 1 PDO\n"
          "  note: RPDO 3 is enabled on the device (COB-ID 0x0411), the board file does not hold "
          "it\n"
          "\n"
          "  node  PDO     what                file      device\n"
          "  0x10  TPDO 1  COB-ID              0x0190    0x0333\n"
          "  0x10  TPDO 1  position 1: object  0x2001/0  0x2002/0\n"
          "  0x11  RPDO 2  PDO                 there     not on the device\n");
}

TEST_F(CheckCommand, prints_json_line_by_line) {
  attach(other_board_text);
  EXPECT_EQ(check({"--json", "--bus", "can7"}), ExitStatus::operation_failed);
  EXPECT_THAT(
      out,
      EndsWith(
          R"({"node_id":16,"pdo":"TPDO 1","what":"COB-ID","file":"0x0190","device":"0x0333"})"
          "\n"
          R"({"node_id":16,"pdo":"TPDO 1","what":"position 1: object","file":"0x2001/0",)"
          R"("device":"0x2002/0"})"
          "\n"
          R"({"node_id":16,"ok":false,"code":"failed","pdos":2,"differences":2,"not_compared":0,)"
          R"("warnings":0})"
          "\n"
          R"({"node_id":17,"pdo":"RPDO 2","what":"PDO","file":"there",)"
          R"("device":"not on the device"})"
          "\n"
          R"({"node_id":17,"note":"RPDO 3 is enabled on the device (COB-ID 0x0411), the board )"
          R"(file does not hold it"})"
          "\n"
          R"({"node_id":17,"ok":false,"code":"failed","pdos":1,"differences":1,"not_compared":0,)"
          R"("warnings":0})"
          "\n"));
}

TEST_F(CheckCommand, notes_alone_are_no_difference) {
  attach(compared_board);
  nodes.front()->device().add_object(0x1401, 1,
                                     {ObjectAccess::read_only, {0x33, 3, 0, 0}, false, 0});
  EXPECT_EQ(check(), ExitStatus::success);
  EXPECT_THAT(out, HasSubstr("node 0x10: 2 PDOs match\n  note: RPDO 2 is enabled"));
}

TEST_F(CheckCommand, warns_when_no_sync_comes) {
  attach(compared_board);
  make_synchronous(0, 0x1400);
  EXPECT_EQ(check(), ExitStatus::success);
  EXPECT_EQ(out, file_line +
                     "node 0x10: 2 PDOs match\n"
                     "  warning: no SYNC came within 1 s (COB-ID 0x0080); until one comes nothing "
                     "moves by RPDO "
                     "1\n"
                     "node 0x11: 1 PDO matches\n");
}

TEST_F(CheckCommand, prints_warnings_as_json) {
  attach(compared_board);
  make_synchronous(0, 0x1400);
  EXPECT_EQ(check({"--json", "--bus", "can7"}), ExitStatus::success);
  EXPECT_THAT(out, HasSubstr(R"({"node_id":16,"warning":"no SYNC came within 1 s (COB-ID 0x0080); )"
                             R"(until one comes nothing moves by RPDO 1"})"
                             "\n"
                             R"({"node_id":16,"ok":true,"code":"done","pdos":2,"differences":0,)"
                             R"("not_compared":0,"warnings":1})"
                             "\n"));
}

TEST_F(CheckCommand, says_nothing_of_a_sync_that_comes) {
  attach(compared_board);
  make_synchronous(0, 0x1400);
  // Sent with each answer of the other node, and half a second on its way.
  const auto producer =
      bus.open({{0x591}}, [](const CanFrame& /*frame*/, std::vector<CanFrame>& answers) {
        answers.push_back({0x080, 0, {}});
      });
  bus.set_fault_rule([](const CanFrame& frame) {
    const std::chrono::milliseconds delay(frame.id == 0x080 ? 500 : 0);
    return std::vector<CanDelivery>{{frame, delay}};
  });
  EXPECT_EQ(check(), ExitStatus::success);
  EXPECT_EQ(out, file_line + "node 0x10: 2 PDOs match\nnode 0x11: 1 PDO matches\n");
}

TEST_F(CheckCommand, does_not_wait_where_no_rpdo_is_synchronous) {
  attach(compared_board);
  nodes.front()->device().add_object(0x1800, 2, {ObjectAccess::read_only, {1}, false, 0});
  const auto clock = bus.open({});
  const auto start = clock->now();
  EXPECT_EQ(check(), ExitStatus::success);
  EXPECT_EQ(clock->now(), start);
}

TEST_F(CheckCommand, lists_a_difference_beside_a_warning) {
  attach(compared_board);
  make_synchronous(0, 0x1400);
  std::string text = compared_board;
  text.replace(text.find("direction: RPDO"), 15, "direction: RPDO, transmission: 255");
  std::ofstream(board) << text;
  EXPECT_EQ(check(), ExitStatus::operation_failed);
  EXPECT_THAT(out, HasSubstr("node 0x10: 1 difference in 2 PDOs\n  warning: no SYNC"));
  EXPECT_THAT(out, EndsWith("  0x10  RPDO 1  transmission  255   1\n"));
}

TEST_F(CheckCommand, interruption_ends_the_wait_for_a_sync) {
  attach(compared_board);
  make_synchronous(1, 0x1401);
  // Follows the answers of the node by a third of a second, in which all has been read.
  const CanFrame late{0x123, 0, {}};
  const auto sender = bus.open(
      {{0x591}},
      [&](const CanFrame& /*frame*/, std::vector<CanFrame>& answers) { answers.push_back(late); });
  const auto user = bus.open(
      {{late.id}},
      [&](const CanFrame& /*frame*/, std::vector<CanFrame>& /*answers*/) { interrupted = true; });
  bus.set_fault_rule([&](const CanFrame& frame) {
    const std::chrono::milliseconds delay(frame.id == late.id ? 300 : 0);
    return std::vector<CanDelivery>{{frame, delay}};
  });
  EXPECT_EQ(check(), ExitStatus::interrupted);
  EXPECT_EQ(out, file_line +
                     "node 0x10: 2 PDOs match\n"
                     "node 0x11: 0 differences in 1 PDO, not all compared\n"
                     "  not compared: SYNC: interrupted\n");
}

TEST_F(CheckCommand, tells_which_node_does_not_answer) {
  attach(other_board_text);
  attached.pop_back();
  EXPECT_EQ(check(), ExitStatus::no_answer);
  EXPECT_THAT(out, HasSubstr("node 0x10: 2 differences in 2 PDOs\n"));
  EXPECT_THAT(out, HasSubstr("node 0x11: 0 differences in 1 PDO, not all compared\n"
                             "  not compared: RPDO 2 and all that follows: 0x1401/1: no answer"));
}

TEST_F(CheckCommand, refuses_the_simulated_bus) {
  EXPECT_EQ(check({"--bus", "sim"}), ExitStatus::bad_input);
  EXPECT_EQ(err,
            "velmora-can-bridge: name a CAN interface (--bus can0): nothing is simulated here\n");
}

TEST_F(CheckCommand, prints_what_was_not_compared_as_json) {
  EXPECT_EQ(check({"--json", "--bus", "can7"}), ExitStatus::no_answer);
  std::istringstream lines(out);
  std::string line;
  std::getline(lines, line);
  std::getline(lines, line);
  EXPECT_EQ(nlohmann::json::parse(line)["not_compared"], "RPDO 1 and all that follows");
  EXPECT_THAT(nlohmann::json::parse(line)["reason"], testing::StartsWith("0x1400/1: no answer"));
  std::getline(lines, line);
  EXPECT_EQ(
      line,
      R"({"node_id":16,"ok":false,"code":"no_answer","pdos":2,"differences":0,"not_compared":1,)"
      R"("warnings":0})");
}

TEST_F(CheckCommand, tells_that_the_bus_does_not_work) {
  attach(other_board_text);
  bus.set_state(CanStatus::interface_down);
  EXPECT_EQ(check(), ExitStatus::bus_fault);
  EXPECT_THAT(out, HasSubstr("interface can7 is down (ip link set can7 up"));
}

TEST_F(CheckCommand, ends_when_interrupted) {
  attach(other_board_text);
  interrupted = true;
  EXPECT_EQ(check(), ExitStatus::interrupted);
  EXPECT_THAT(out, HasSubstr("not compared: RPDO 1 and all that follows: 0x1400/1: interrupted\n"));
}

TEST_F(CheckCommand, does_not_touch_a_bus_unless_asked) {
  EXPECT_EQ(check({}), ExitStatus::success);
  EXPECT_EQ(out, file_line);
  EXPECT_EQ(opened, "");
}

TEST_F(CheckCommand, does_not_touch_a_bus_when_the_file_has_errors) {
  std::ofstream(board) << "nodes: [{node_id: 0}]\n";
  EXPECT_EQ(check(), ExitStatus::bad_input);
  EXPECT_EQ(opened, "");
}

}  // namespace
}  // namespace velmora_can_bridge

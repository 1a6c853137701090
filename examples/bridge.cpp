// A board on a simulated bus: one operation explained and run, one that fails. Its argument is the
// board file, examples/robot_board.yaml.
#include "velmora_can_bridge/bridge/bridge.hpp"

#include <chrono>
#include <cstdio>

#include "velmora_can_bridge/bridge/simulated_board.hpp"

namespace vcb = velmora_can_bridge;
using Bytes = std::vector<std::uint8_t>;

static void print(const vcb::OperationReport& report) {
  std::printf("%s: %s%s%s\n", report.operation.c_str(), report.result.message.c_str(),
              report.error ? ": " : "", report.error ? report.error->text.c_str() : "");
}

int main(int argc, char** argv) {
  const vcb::LoadedBoard loaded = vcb::load_board_file(argc > 1 ? argv[1] : "");
  for (const vcb::Problem& problem : loaded.problems) {
    std::puts(vcb::problem_text(argc > 1 ? argv[1] : "", problem).c_str());
  }
  if (!loaded.file) {
    return 1;
  }

  vcb::SimulatedBoard channel(*loaded.file);  // on a robot: vcb::SocketCanChannel channel("can0");
  vcb::Bridge bridge(channel, *loaded.file);
  bridge.add_observer([](const vcb::BridgeEvent& event) {
    std::printf("told: %s\n", vcb::bridge_event_text(event).c_str());
  });

  const Bytes blue{0x00, 0x00, 0xFF};
  const vcb::Explanation explanation = bridge.explain("led", "set_led_color", blue);
  std::printf("%s", vcb::explanation_text(explanation).c_str());
  print(bridge.run("led", "set_led_color", blue));
  print(bridge.run("pumps", "set_pump_raw", Bytes{77, 0xEE, 0x02}));  // there is no channel 77
  bridge.poll(std::chrono::milliseconds(0));  // tells the observer; on a robot a BridgeRunner does
}

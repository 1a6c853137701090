// The program over a board file of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/node_on_bus.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"
#include "velmora_can_bridge/simulator/in_process_node.hpp"

namespace velmora_can_bridge {

inline constexpr const char* board_text = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
    operations:
      read_identity: {kind: read_multi, index: 0x1018, sub_indices: [0, 1], label: Identity}
      read_nothing: {kind: sdo_read, index: 0x5FFF}
      set_acceleration: {kind: sdo_write, index: 0x6083, data_type: u32}
  - node_id: 0x11
    device_od_map:
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
    operations:
      read_name: {kind: sdo_read, index: 0x1008}
)";

/// Gives endpoints of a bus that somebody else owns.
class SharedChannel : public CanChannel {
 public:
  explicit SharedChannel(CanChannel& shared) : shared_(&shared) {}

  std::unique_ptr<CanEndpoint> open(const std::vector<CanFilter>& filters) override {
    return shared_->open(filters);
  }

 private:
  CanChannel* const shared_;
};

/// An object that holds `value`.
inline ObjectEntry object_of(std::vector<std::uint8_t> value) {
  ObjectEntry entry;
  entry.value = std::move(value);
  return entry;
}

/// Runs the program over a board file of the test's own.
class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test.test_suite_name()) + "." + test.name();
    std::replace(name.begin(), name.end(), '/', '.');
    folder = std::filesystem::path(testing::TempDir()) / ("velmora_cli_" + name);
    std::filesystem::create_directories(folder);
    board = write_file("board.yaml", board_text);
  }

  void TearDown() override { std::filesystem::remove_all(folder); }

  std::string write_file(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = folder / name;
    std::ofstream(path, std::ios::binary) << text;
    return path.string();
  }

  /// From now on the interface "can0" is `can0`.
  void plug_in() {
    open_interface = [this](const std::string& interface) -> std::unique_ptr<CanChannel> {
      opened.push_back(interface);
      return std::make_unique<SharedChannel>(can0);
    };
  }

  ExitStatus run(const std::vector<std::string>& arguments) {
    std::ostringstream out_stream;
    std::ostringstream err_stream;
    const ExitStatus status = run_command_line(
        arguments, {out_stream, err_stream, false, sleep, open_interface, &interrupted, false,
                    width, in, type_line, resume, &terminated});
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }

  std::filesystem::path folder;
  std::string board;
  std::function<void(std::chrono::milliseconds)> sleep;
  std::function<std::unique_ptr<CanChannel>(const std::string& interface)> open_interface;
  std::atomic<bool> interrupted{false};
  std::atomic<bool> terminated{false};
  InProcessBus can0{BusTime::simulated, "can0"};
  std::vector<std::string> opened;
  // Of the terminal.
  std::size_t width = 0;
  std::istream* in = nullptr;
  std::function<std::optional<std::string>(const std::string&, const LineCompletion&)> type_line;
  std::function<void()> resume;
  std::string out;
  std::string err;
};

}  // namespace velmora_can_bridge

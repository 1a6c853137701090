// Our side of tools/vcan/counterparts: sends and receives frames of every kind and length.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "socket_can_interface.hpp"
#include "support/patience.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

constexpr const char* usage = "usage: counterpart send | receive COUNT | log\n";

/// One frame of each length, with the lowest and the highest identifier among them.
std::vector<CanFrame> frames() {
  std::vector<CanFrame> frames;
  for (std::uint8_t length = 0; length <= 8; ++length) {
    CanFrame frame{static_cast<std::uint16_t>(length * 0x7FFU / 8U), length, {}};
    for (std::uint8_t position = 0; position < length; ++position) {
      frame.data.at(position) = static_cast<std::uint8_t>(0xFA + length + position);
    }
    frames.push_back(frame);
  }
  return frames;
}

void print(const CanFrame& frame) {
  static std::chrono::microseconds time{1700000000000000};
  time += std::chrono::milliseconds(1);
  std::cout << can_log_line(time, test_interface(), frame) << std::endl;
}

bool send() {
  SocketCanChannel channel(test_interface());
  const auto endpoint = channel.open({});
  for (const CanFrame& frame : frames()) {
    const CanStatus status = endpoint->send(frame, patience);
    if (status != CanStatus::ok) {
      std::cerr << endpoint->explain(status) << "\n";
      return false;
    }
    print(frame);
  }
  return true;
}

/// Prints "ready" when a frame would be received, then what comes.
bool receive(std::size_t count) {
  SocketCanChannel channel(test_interface());
  const auto endpoint = channel.open({{0, 0}});
  std::cout << "ready" << std::endl;
  for (; count > 0; --count) {
    CanFrame frame;
    const CanStatus status = endpoint->receive(frame, patience);
    if (status != CanStatus::ok) {
      std::cerr << endpoint->explain(status) << "\n";
      return false;
    }
    print(frame);
  }
  return true;
}

bool log() {
  for (const CanFrame& frame : frames()) {
    print(frame);
  }
  return true;
}

bool run(const std::vector<std::string>& arguments) {
  const std::string command = arguments.empty() ? "" : arguments.front();
  if (command == "send" && arguments.size() == 1) {
    return send();
  }
  if (command == "receive" && arguments.size() == 2) {
    return receive(std::stoul(arguments[1]));
  }
  if (command == "log" && arguments.size() == 1) {
    return log();
  }
  std::cerr << usage;
  return false;
}

}  // namespace
}  // namespace velmora_can_bridge

int main(int argc, char** argv) {
  try {
    return velmora_can_bridge::run({argv + 1, argv + argc}) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}

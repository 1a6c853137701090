#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "velmora_can_bridge/cli/command_line.hpp"

namespace bridge = velmora_can_bridge;

int main(int argc, char** argv) {
  try {
    const bool live = isatty(STDOUT_FILENO) == 1;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing has started a thread yet
    const bool colour = live && std::getenv("NO_COLOR") == nullptr;
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    bridge::CommandLineHost host{std::cout, std::cerr, colour, {}, {}, nullptr};
    if (live) {
      host.sleep = [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); };
    }
    const bridge::ExitStatus status = bridge::run_command_line(arguments, host);
    if (!std::cout.flush()) {
      std::cerr << "velmora-can-bridge: cannot write the output\n";
      return static_cast<int>(bridge::ExitStatus::operation_failed);
    }
    return static_cast<int>(status);
  } catch (const std::exception& error) {
    std::cerr << "velmora-can-bridge: " << error.what() << '\n';
    return static_cast<int>(bridge::ExitStatus::bad_input);
  }
}

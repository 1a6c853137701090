// How commands reach a CAN interface.
#pragma once

#include <memory>
#include <string>

#include "command_bus.hpp"
#include "report.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"
#include "velmora_can_bridge/cli/command_line.hpp"

namespace velmora_can_bridge {

/// The interface of that name, as the host gives access to it. Never null.
inline std::unique_ptr<CanChannel> interface_channel(const CommandLineHost& host,
                                                     const std::string& interface) {
  return host.open_interface ? host.open_interface(interface)
                             : std::make_unique<SocketCanChannel>(interface);
}

/// For commands that simulate nothing: false for the simulated bus, after a diagnostic.
inline bool is_interface(const CommandLineHost& host, const std::string& bus) {
  if (bus == simulated_bus) {
    print_diagnostic(host, "name a CAN interface (--bus can0): nothing is simulated here");
    return false;
  }
  return true;
}

inline bool is_interrupted(const CommandLineHost& host) {
  return host.interrupted != nullptr && host.interrupted->load();
}

inline bool is_terminated(const CommandLineHost& host) {
  return host.terminated != nullptr && host.terminated->load();
}

}  // namespace velmora_can_bridge

// What the states of an interface mean to the person who has to mend it.
#pragma once

#include <cstddef>
#include <string>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// `system_error` is the errno of a `failed`, else ignored.
std::string status_text(CanStatus status, const std::string& interface, int system_error);

/// Of an endpoint with more filters than the system takes for one socket.
std::string too_many_filters_text(const std::string& interface, std::size_t filters,
                                  std::size_t limit);

}  // namespace velmora_can_bridge

// What the states of an interface mean to the person who has to mend it.
#pragma once

#include <string>

#include "velmora_can_bridge/bus/can_channel.hpp"

namespace velmora_can_bridge {

/// `system_error` is the errno of a `failed`, else ignored.
std::string status_text(CanStatus status, const std::string& interface, int system_error);

}  // namespace velmora_can_bridge

// One line of a script.
#pragma once

#include <chrono>
#include <string>
#include <variant>
#include <vector>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// Nothing but blanks and a comment.
struct EmptyLine {};

/// "left_wheel set_mode velocity", "explain left_wheel drive 0 0".
struct OperationLine {
  bool explains = false;
  std::string device;
  std::string operation;
  std::vector<std::string> payload;
};

/// "wait 200ms".
struct PauseLine {
  std::chrono::milliseconds time{0};
};

/// "wait left_wheel target_reached 5s".
struct WaitLine {
  std::string device;
  /// The name of a `DriveCondition`.
  std::string condition;
  /// How long at most.
  std::chrono::milliseconds patience{5000};
};

using ScriptLine = std::variant<EmptyLine, OperationLine, PauseLine, WaitLine>;

/// The words of a line: blanks separate them, quotes ('a b', "a b") hold them together, and "#" at
/// the beginning of one begins a comment. Or what is wrong with them.
Expected<std::vector<std::string>> script_words(const std::string& line);

/// What the line asks for, or what is wrong with it. Names of devices, operations and conditions
/// are taken as they stand.
Expected<ScriptLine> parse_script_line(const std::string& line);

}  // namespace velmora_can_bridge

// Every frame that the program sends and receives, in a file.
#pragma once

#include <chrono>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// A file in the log format of can-utils. Safe to use from any thread.
class FrameLog {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Empties the file at `path` or makes it; `interface` stands in every line.
  FrameLog(const std::string& path, std::string interface);

  /// Appends a line, which is in the file at once. `time` counts from the first frame's, which gets
  /// the time of day.
  void write(const CanFrame& frame, Time time);

  /// Whether the file could be opened, and all lines so far stand in it.
  bool is_complete();

 private:
  const std::string interface_;

  // Guards everything below.
  std::mutex mutex_;
  std::ofstream file_;
  // What added to an endpoint's time gives the time since the epoch.
  std::optional<std::chrono::microseconds> epoch_offset_;
};

}  // namespace velmora_can_bridge

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

  /// Appends a line. `time` counts from the first frame's, which gets the time of day.
  void write(const CanFrame& frame, Time time);

  /// Whether all lines so far stand in the file; also whether it could be opened.
  bool flush();

 private:
  const std::string interface_;

  // Guards everything below.
  std::mutex mutex_;
  std::ofstream file_;
  // What added to an endpoint's time gives the time since the epoch.
  std::optional<std::chrono::microseconds> epoch_offset_;
};

}  // namespace velmora_can_bridge

/// Every frame that the program sends and receives, in a file.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// A file in the log format of can-utils. Safe to use from any thread.
class FrameLog {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Makes the file at `path`, or empties it when it is a regular file, no link, and holds nothing
  /// but such a log; `interface` stands in every line. The error names the file, which was left as
  /// it was.
  static Expected<std::unique_ptr<FrameLog>> open(const std::string& path, std::string interface);

  ~FrameLog();
  FrameLog(const FrameLog&) = delete;
  FrameLog(FrameLog&&) = delete;
  FrameLog& operator=(const FrameLog&) = delete;
  FrameLog& operator=(FrameLog&&) = delete;

  /// Appends a line, which is in the file at once. `time` counts from the first frame's, which gets
  /// the time of day.
  void write(const CanFrame& frame, Time time);

  /// Whether all lines so far stand in the file.
  bool is_complete();

 private:
  explicit FrameLog(std::string interface);

  std::optional<std::string> open_file(const std::string& path);
  void append(const std::string& text);

  const std::string interface_;

  // Guards everything below.
  std::mutex mutex_;
  // Negative until it is open.
  int file_ = -1;
  bool is_complete_ = true;
  // What added to an endpoint's time gives the time since the epoch.
  std::optional<std::chrono::microseconds> epoch_offset_;
};

}  // namespace velmora_can_bridge

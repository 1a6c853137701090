/// Every frame that the program sends and receives, in a file.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// A file in the log format of can-utils. Safe to use from any thread.
class FrameLog {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Makes the file at `path`, or empties it when it is a regular file, no link, and holds nothing
  /// but such a log; `interface` stands in every line. `problem` tells when that cannot be done.
  FrameLog(const std::string& path, std::string interface);
  ~FrameLog();
  FrameLog(const FrameLog&) = delete;
  FrameLog(FrameLog&&) = delete;
  FrameLog& operator=(const FrameLog&) = delete;
  FrameLog& operator=(FrameLog&&) = delete;

  /// Why there is no file to write to, which was left as it was then; names it. Empty when there is
  /// one.
  const std::string& problem() const { return problem_; }

  /// Appends a line, which is in the file at once. `time` counts from the first frame's, which gets
  /// the time of day.
  void write(const CanFrame& frame, Time time);

  /// Whether the file could be opened, and all lines so far stand in it.
  bool is_complete();

 private:
  std::string open(const std::string& path);
  void append(const std::string& text);

  const std::string interface_;
  // Written by the constructor alone.
  std::string problem_;

  // Guards everything below.
  std::mutex mutex_;
  // Negative when there is no file.
  int file_ = -1;
  bool is_complete_ = false;
  // What added to an endpoint's time gives the time since the epoch.
  std::optional<std::chrono::microseconds> epoch_offset_;
};

}  // namespace velmora_can_bridge

#include "frame_log.hpp"

#include <utility>

#include "velmora_can_bridge/bus/can_log.hpp"

namespace velmora_can_bridge {

using std::chrono::duration_cast;
using std::chrono::microseconds;

FrameLog::FrameLog(const std::string& path, std::string interface)
    : interface_(std::move(interface)), file_(path) {}

void FrameLog::write(const CanFrame& frame, Time time) {
  const auto counted = duration_cast<microseconds>(time.time_since_epoch());
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!epoch_offset_) {
    epoch_offset_ =
        duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()) - counted;
  }
  file_ << can_log_line(*epoch_offset_ + counted, interface_, frame) << std::endl;
}

bool FrameLog::is_complete() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return file_.good();
}

}  // namespace velmora_can_bridge

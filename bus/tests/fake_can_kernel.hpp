// System calls on CAN sockets, answered by a script.
#pragma once

#include <linux/can.h>
#include <linux/can/raw.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace velmora_can_bridge {

/// While it lives, CAN sockets of this program are its own: sockets with a descriptor each, but of
/// no bus. The loopback interface "lo" is one that they can be bound to. One at a time.
///
/// Calls fail with the errors of the script, the first one first; 0 stands for success, and so does
/// a script that is over. Safe to use from several threads once the scripts stand.
class FakeCanKernel {
 public:
  FakeCanKernel();
  ~FakeCanKernel();
  FakeCanKernel(const FakeCanKernel&) = delete;
  FakeCanKernel(FakeCanKernel&&) = delete;
  FakeCanKernel& operator=(const FakeCanKernel&) = delete;
  FakeCanKernel& operator=(FakeCanKernel&&) = delete;

  /// What the calls fail with.
  struct Script {
    std::deque<int> socket;
    std::deque<int> bind;
    std::deque<int> send;
    /// A receive that succeeds takes a frame of `arriving`; EAGAIN when there is none.
    std::deque<int> receive;
    /// Every receive that may wait is interrupted by a signal.
    bool interrupts_waits = false;
    /// How long each opening of a socket waits for another thread that opens one as well.
    std::chrono::milliseconds opening{0};
    std::deque<can_frame> arriving;
  };
  Script script;

  /// What was asked of it.
  struct Seen {
    std::vector<int> sockets;
    std::size_t binds = 0;
    /// Threads that opened a socket at one time, at most.
    std::size_t opening_at_once = 0;
    std::vector<can_filter> filters;
    can_err_mask_t errors = 0;
    /// Every attempt, refused ones too.
    std::vector<can_frame> sent;
    /// How long each receive might wait; no value for one that might not.
    std::vector<std::optional<std::chrono::microseconds>> waits;
  };
  Seen seen() const;

  // The system calls; they set errno as those do.
  int open_socket(int type);
  int bind_socket();
  int set_option(int level, int name, const void* value, std::size_t size);
  int send(const can_frame& frame);
  int receive(can_frame& frame, bool may_wait);

 private:
  mutable std::mutex mutex_;
  std::condition_variable opened_;
  std::size_t opening_ = 0;
  std::chrono::microseconds receive_timeout_{0};
  Seen seen_;
};

}  // namespace velmora_can_bridge

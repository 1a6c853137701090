#include "fake_can_kernel.hpp"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace velmora_can_bridge {
namespace {

std::atomic<FakeCanKernel*> present_kernel{nullptr};

/// True for success; else errno is set.
bool succeeds(std::deque<int>& errors) {
  if (errors.empty()) {
    return true;
  }
  const int error = errors.front();
  errors.pop_front();
  errno = error;
  return error == 0;
}

}  // namespace

FakeCanKernel::FakeCanKernel() { present_kernel = this; }

FakeCanKernel::~FakeCanKernel() { present_kernel = nullptr; }

FakeCanKernel::Seen FakeCanKernel::seen() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return seen_;
}

/// The descriptor is one of the internet: every kernel has these, and knows interfaces on them.
int FakeCanKernel::open_socket(int type) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!succeeds(script.socket)) {
    return -1;
  }
  seen_.opening_at_once = std::max(seen_.opening_at_once, ++opening_);
  opened_.notify_all();
  opened_.wait_for(lock, script.opening, [this] { return opening_ > 1; });
  --opening_;
  const int flags = type & (SOCK_CLOEXEC | SOCK_NONBLOCK);
  const auto opened = static_cast<int>(::syscall(SYS_socket, AF_INET, SOCK_DGRAM | flags, 0));
  seen_.sockets.push_back(opened);
  return opened;
}

int FakeCanKernel::bind_socket() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++seen_.binds;
  return succeeds(script.bind) ? 0 : -1;
}

int FakeCanKernel::set_option(int level, int name, const void* value, std::size_t size) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (level == SOL_CAN_RAW && name == CAN_RAW_FILTER) {
    if (size > CAN_RAW_FILTER_MAX * sizeof(can_filter)) {
      errno = EINVAL;
      return -1;
    }
    seen_.filters.resize(size / sizeof(can_filter));
    if (size != 0) {
      std::memcpy(seen_.filters.data(), value, size);
    }
  } else if (level == SOL_CAN_RAW && name == CAN_RAW_ERR_FILTER) {
    std::memcpy(&seen_.errors, value, sizeof seen_.errors);
  } else if (level == SOL_SOCKET && name == SO_RCVTIMEO) {
    timeval time{};
    std::memcpy(&time, value, sizeof time);
    receive_timeout_ = std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
  }
  return 0;
}

int FakeCanKernel::send(const can_frame& frame) {
  const std::lock_guard<std::mutex> lock(mutex_);
  seen_.sent.push_back(frame);
  return succeeds(script.send) ? static_cast<int>(sizeof frame) : -1;
}

int FakeCanKernel::receive(can_frame& frame, bool may_wait) {
  const std::lock_guard<std::mutex> lock(mutex_);
  seen_.waits.push_back(may_wait ? std::optional(receive_timeout_) : std::nullopt);
  if (may_wait && script.interrupts_waits) {
    errno = EINTR;
    return -1;
  }
  if (!succeeds(script.receive)) {
    return -1;
  }
  if (script.arriving.empty()) {
    errno = EAGAIN;
    return -1;
  }
  frame = script.arriving.front();
  script.arriving.pop_front();
  return static_cast<int>(sizeof frame);
}

}  // namespace velmora_can_bridge

// In place of those of the C library. Without a kernel of the test's they ask the real one.

using velmora_can_bridge::present_kernel;

extern "C" int socket(int domain, int type, int protocol) noexcept {
  velmora_can_bridge::FakeCanKernel* const kernel = present_kernel;
  return kernel != nullptr && domain == PF_CAN
             ? kernel->open_socket(type)
             : static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
}

extern "C" int bind(int socket, const sockaddr* address, socklen_t size) noexcept {
  velmora_can_bridge::FakeCanKernel* const kernel = present_kernel;
  return kernel != nullptr ? kernel->bind_socket()
                           : static_cast<int>(::syscall(SYS_bind, socket, address, size));
}

extern "C" int setsockopt(int socket, int level, int name, const void* value,
                          socklen_t size) noexcept {
  velmora_can_bridge::FakeCanKernel* const kernel = present_kernel;
  return kernel != nullptr
             ? kernel->set_option(level, name, value, size)
             : static_cast<int>(::syscall(SYS_setsockopt, socket, level, name, value, size));
}

extern "C" ssize_t send(int socket, const void* bytes, size_t size, int flags) {
  velmora_can_bridge::FakeCanKernel* const kernel = present_kernel;
  if (kernel == nullptr) {
    return ::syscall(SYS_sendto, socket, bytes, size, flags, nullptr, 0);
  }
  can_frame frame{};
  std::memcpy(&frame, bytes, std::min(size, sizeof frame));
  return kernel->send(frame);
}

extern "C" ssize_t recv(int socket, void* bytes, size_t size, int flags) {
  velmora_can_bridge::FakeCanKernel* const kernel = present_kernel;
  if (kernel == nullptr) {
    return ::syscall(SYS_recvfrom, socket, bytes, size, flags, nullptr, nullptr);
  }
  can_frame frame{};
  const int received = kernel->receive(frame, (flags & MSG_DONTWAIT) == 0);
  if (received > 0) {
    std::memcpy(bytes, &frame, std::min(size, sizeof frame));
  }
  return received;
}

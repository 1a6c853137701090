#include "velmora_can_bridge/bus/socket_can_channel.hpp"

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "can_frame_checks.hpp"
#include "ground/longest_wait.hpp"
#include "status_text.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;

// How often a full transmit queue is tried: about one frame's time on a slow bus.
constexpr microseconds retry_interval{200};
// How often a receiver looks whether its interface is back.
constexpr std::chrono::milliseconds rebind_interval{100};
// By how much times that were read from two clocks may disagree.
constexpr std::chrono::milliseconds stamp_tolerance{1};
// The kernel's time-outs are no finer; 0 would mean for ever.
constexpr microseconds shortest_timeout{1};
can_frame to_kernel(const CanFrame& frame) {
  can_frame raw{};
  raw.can_id = frame.id;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): both names are the length
  raw.can_dlc = frame.length;
  std::copy(frame.data.begin(), frame.data.end(), std::begin(raw.data));
  return raw;
}

CanFrame from_kernel(const can_frame& raw) {
  CanFrame frame;
  frame.id = static_cast<std::uint16_t>(raw.can_id & CAN_SFF_MASK);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): both names are the length
  frame.length = std::min<std::uint8_t>(raw.can_dlc, CAN_MAX_DLEN);
  std::copy_n(std::begin(raw.data), frame.length, frame.data.begin());
  return frame;
}

/// What an error frame says that matters here.
std::optional<CanStatus> error_status(const can_frame& raw) {
  constexpr unsigned passive = CAN_ERR_CRTL_RX_PASSIVE | CAN_ERR_CRTL_TX_PASSIVE;
  if ((raw.can_id & CAN_ERR_BUSOFF) != 0) {
    return CanStatus::bus_off;
  }
  if ((raw.can_id & CAN_ERR_CRTL) != 0 && (raw.data[1] & passive) != 0) {
    return CanStatus::error_passive;
  }
  return {};
}

timeval to_timeval(nanoseconds time) {
  const auto whole = std::max(std::chrono::duration_cast<microseconds>(time), shortest_timeout);
  constexpr microseconds::rep per_second = 1000000;
  return {static_cast<time_t>(whole.count() / per_second),
          static_cast<suseconds_t>(whole.count() % per_second)};
}

/// Data frames with 11-bit identifiers only.
std::vector<can_filter> to_kernel(const std::vector<CanFilter>& filters) {
  std::vector<can_filter> raw;
  raw.reserve(filters.size());
  for (const CanFilter& filter : filters) {
    raw.push_back({filter.id, (filter.mask & CAN_SFF_MASK) | CAN_EFF_FLAG | CAN_RTR_FLAG});
  }
  return raw;
}

/// Room for what the kernel tells beside a frame: when it came, and how many were lost before.
struct FrameNotes {
  alignas(cmsghdr)
      std::array<char, CMSG_SPACE(sizeof(timespec)) + CMSG_SPACE(sizeof(std::uint32_t))> bytes;
};

template <typename Value>
Value value_of(cmsghdr& note) {
  Value value{};
  std::memcpy(&value, CMSG_DATA(&note), sizeof value);
  return value;
}

/// How long ago the clock of the day showed `time`. Wrong when somebody has set it since.
nanoseconds age_of(const timespec& time) {
  const auto stamp = std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
  return std::chrono::system_clock::now().time_since_epoch() - stamp;
}

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS; }

/// A question about the interface; no value when no interface can have that name.
std::optional<ifreq> request_about(const std::string& interface) {
  ifreq request{};
  if (interface.empty() || interface.size() >= sizeof request.ifr_name) {
    return {};
  }
  interface.copy(std::begin(request.ifr_name), interface.size());
  return request;
}

/// One raw socket, which keeps its number for life once there is a descriptor for it: when the
/// interface goes away, it is bound again to the one that comes back.
class SocketCanEndpoint : public CanEndpoint {
 public:
  SocketCanEndpoint(std::string interface, const std::vector<CanFilter>& filters)
      : interface_(std::move(interface)), filters_(to_kernel(filters)) {
    bind_if_needed();
  }

  ~SocketCanEndpoint() override {
    if (socket_ >= 0) {
      ::close(socket_);
    }
  }
  SocketCanEndpoint(const SocketCanEndpoint&) = delete;
  SocketCanEndpoint(SocketCanEndpoint&&) = delete;
  SocketCanEndpoint& operator=(const SocketCanEndpoint&) = delete;
  SocketCanEndpoint& operator=(SocketCanEndpoint&&) = delete;

  CanStatus send(const CanFrame& frame, nanoseconds patience) override;
  CanStatus receive(CanFrame& frame, nanoseconds timeout) override;
  void note_arrivals() override;
  CanArrival arrival() const override {
    return notes_arrivals_ ? arrival_ : CanEndpoint::arrival();
  }
  steady_clock::time_point now() const override { return steady_clock::now(); }

  CanStatus state() const override;

  std::string explain(CanStatus status) const override;

 private:
  CanStatus bind_if_needed();
  CanStatus open_and_bind();
  CanStatus open_socket();
  CanStatus bind_socket();
  void note_arrivals_on_socket();
  CanStatus try_send(const can_frame& raw);
  CanStatus send_when_there_is_room(const can_frame& raw, nanoseconds patience);
  std::optional<CanStatus> receive_one(CanFrame& frame, nanoseconds timeout);
  ssize_t take(can_frame& raw, int flags);
  void note_arrival(msghdr& message);
  void count_lost(std::uint32_t kernel_count);
  void count_lost_until_now();
  std::optional<CanStatus> wait_for_interface(CanStatus status, nanoseconds timeout);
  CanStatus status_of(int error);
  CanStatus failed(int error);
  void set_timeout(nanoseconds timeout);

  const std::string interface_;
  const std::vector<can_filter> filters_;
  // Negative until it could be opened; never changed from then on.
  std::atomic<int> socket_{-1};
  std::atomic<int> system_error_{0};
  std::atomic<bool> is_bound_{false};
  std::atomic<bool> notes_arrivals_{false};
  // Held while the socket is opened and bound, so that two threads do not do it at once. Guards the
  // next.
  std::mutex bind_mutex_;
  bool wants_arrivals_ = false;
  // The rest belongs to the receiving thread.
  nanoseconds kernel_timeout_{0};
  // What was told last of an interface that cannot be used; ok for nothing.
  CanStatus told_unbound_ = CanStatus::ok;
  CanArrival arrival_;
  // No frame that is still to be taken came before this: the latest arrival, or the last time at
  // which nothing waited.
  steady_clock::time_point not_before_ = steady_clock::now();
};

CanStatus SocketCanEndpoint::send(const CanFrame& frame, nanoseconds patience) {
  if (!is_can_frame(frame)) {
    system_error_ = EINVAL;
    return CanStatus::failed;
  }
  const can_frame raw = to_kernel(frame);
  CanStatus status = try_send(raw);
  if (status == CanStatus::interface_down || status == CanStatus::interface_missing) {
    // A socket keeps the news that its interface went down until it has told them, although the
    // interface may be back; nothing was sent.
    status = try_send(raw);
  }
  return status == CanStatus::queue_full ? send_when_there_is_room(raw, patience) : status;
}

CanStatus SocketCanEndpoint::send_when_there_is_room(const can_frame& raw, nanoseconds patience) {
  const auto end = steady_clock::now() + std::min<nanoseconds>(patience, longest_wait);
  CanStatus status = CanStatus::queue_full;
  while (status == CanStatus::queue_full && steady_clock::now() < end) {
    std::this_thread::sleep_for(retry_interval);
    status = try_send(raw);
  }
  return status;
}

CanStatus SocketCanEndpoint::try_send(const can_frame& raw) {
  const CanStatus bound = bind_if_needed();
  if (bound != CanStatus::ok) {
    return bound;
  }
  const ssize_t sent = ::send(socket_, &raw, sizeof raw, MSG_DONTWAIT);
  if (sent == static_cast<ssize_t>(sizeof raw)) {
    return CanStatus::ok;
  }
  return would_block(errno) ? CanStatus::queue_full : status_of(errno);
}

CanStatus SocketCanEndpoint::receive(CanFrame& frame, nanoseconds timeout) {
  // Where there is nothing to wait for, the clock, which may be slow, plays no part.
  const bool waits = timeout > nanoseconds(0);
  const auto now = [waits] { return waits ? steady_clock::now() : steady_clock::time_point(); };
  const auto end = now() + std::min<nanoseconds>(timeout, longest_wait);
  nanoseconds left = timeout;
  for (;;) {
    if (const std::optional<CanStatus> status = receive_one(frame, left)) {
      return *status;
    }
    left = std::max<nanoseconds>(end - now(), nanoseconds(0));
  }
}

/// No value for something that does not matter here: the caller goes on waiting.
std::optional<CanStatus> SocketCanEndpoint::receive_one(CanFrame& frame, nanoseconds timeout) {
  const CanStatus bound = bind_if_needed();
  if (bound != CanStatus::ok) {
    return wait_for_interface(bound, timeout);
  }
  told_unbound_ = CanStatus::ok;
  const bool waits = timeout > nanoseconds(0);
  if (waits) {
    set_timeout(timeout);
  }
  const auto begun = notes_arrivals_ ? steady_clock::now() : steady_clock::time_point();
  can_frame raw{};
  const ssize_t received = take(raw, waits ? 0 : MSG_DONTWAIT);
  if (received < 0) {
    const int error = errno;
    if (error == EINTR) {
      return {};
    }
    if (notes_arrivals_ && would_block(error)) {
      count_lost_until_now();
      not_before_ = std::max(not_before_, begun);
    }
    const CanStatus status = would_block(error) ? CanStatus::timed_out : status_of(error);
    told_unbound_ = status == CanStatus::interface_missing ? status : CanStatus::ok;
    return status;
  }
  if ((raw.can_id & CAN_ERR_FLAG) != 0) {
    return error_status(raw);
  }
  frame = from_kernel(raw);
  return CanStatus::ok;
}

ssize_t SocketCanEndpoint::take(can_frame& raw, int flags) {
  if (!notes_arrivals_) {
    return ::recv(socket_, &raw, sizeof raw, flags);
  }
  FrameNotes notes{};
  iovec part{&raw, sizeof raw};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = notes.bytes.data();
  message.msg_controllen = notes.bytes.size();
  const ssize_t received = ::recvmsg(socket_, &message, flags);
  if (received >= 0) {
    note_arrival(message);
  }
  return received;
}

/// The clock of the day may have been set while the frame waited: then its stamp says nothing.
void SocketCanEndpoint::note_arrival(msghdr& message) {
  const auto now = steady_clock::now();
  auto came = now;
  for (cmsghdr* note = CMSG_FIRSTHDR(&message); note != nullptr;
       note = CMSG_NXTHDR(&message, note)) {
    if (note->cmsg_type == SCM_TIMESTAMPNS) {
      came = now - age_of(value_of<timespec>(*note));
    } else if (note->cmsg_type == SO_RXQ_OVFL) {
      count_lost(value_of<std::uint32_t>(*note));
    }
  }
  // Rather too late than too early, which would make the frame's node look silent.
  const bool is_plausible = came > not_before_ - stamp_tolerance;
  arrival_.time = is_plausible ? std::clamp(came, not_before_, now) : now;
  not_before_ = arrival_.time;
}

/// The kernel's count has 32 bits and begins again at 0. That of a frame may be older than what was
/// counted already.
void SocketCanEndpoint::count_lost(std::uint32_t kernel_count) {
  const auto known = static_cast<std::uint32_t>(arrival_.lost);
  const auto more = static_cast<std::int32_t>(kernel_count - known);
  arrival_.lost += static_cast<std::uint32_t>(std::max(more, 0));
}

/// The kernel tells of losses with the next frame, which may be long in coming.
void SocketCanEndpoint::count_lost_until_now() {
  std::array<std::uint32_t, SK_MEMINFO_VARS> counts{};
  socklen_t length = sizeof counts;
  if (::getsockopt(socket_, SOL_SOCKET, SO_MEMINFO, counts.data(), &length) == 0) {
    count_lost(counts[SK_MEMINFO_DROPS]);
  }
}

void SocketCanEndpoint::note_arrivals() {
  const std::lock_guard<std::mutex> lock(bind_mutex_);
  wants_arrivals_ = true;
  if (socket_ >= 0) {
    note_arrivals_on_socket();
  }
}

void SocketCanEndpoint::note_arrivals_on_socket() {
  const int on = 1;
  notes_arrivals_ = ::setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) == 0 &&
                    ::setsockopt(socket_, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on) == 0;
}

/// Tells once why the interface cannot be used, then looks now and again whether it can.
std::optional<CanStatus> SocketCanEndpoint::wait_for_interface(CanStatus status,
                                                               nanoseconds timeout) {
  if (std::exchange(told_unbound_, status) != status) {
    return status;
  }
  if (timeout <= nanoseconds(0)) {
    return CanStatus::timed_out;
  }
  std::this_thread::sleep_for(std::min<nanoseconds>(timeout, rebind_interval));
  return {};
}

/// A controller that leaves the bus loses its carrier, and with it the mark that it runs.
CanStatus SocketCanEndpoint::state() const {
  const int socket = socket_;
  if (socket < 0) {
    return CanStatus::ok;  // without a socket nobody can be asked
  }
  std::optional<ifreq> request = request_about(interface_);
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): the only way to ask for it
  if (!request || ::ioctl(socket, SIOCGIFFLAGS, &*request) != 0) {
    return CanStatus::interface_missing;
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): how the kernel answers
  const auto flags = static_cast<unsigned>(request->ifr_flags);
  if ((flags & IFF_UP) == 0) {
    return CanStatus::interface_down;
  }
  return (flags & IFF_RUNNING) == 0 ? CanStatus::bus_off : CanStatus::ok;
}

std::string SocketCanEndpoint::explain(CanStatus status) const {
  // All that the kernel says of them is "Invalid argument".
  const bool are_filters_too_many = system_error_ == EINVAL && filters_.size() > CAN_RAW_FILTER_MAX;
  return status == CanStatus::failed && are_filters_too_many
             ? too_many_filters_text(interface_, filters_.size(), CAN_RAW_FILTER_MAX)
             : status_text(status, interface_, system_error_);
}

CanStatus SocketCanEndpoint::bind_if_needed() {
  if (is_bound_) {
    return CanStatus::ok;
  }
  const std::lock_guard<std::mutex> lock(bind_mutex_);
  return is_bound_ ? CanStatus::ok : open_and_bind();
}

CanStatus SocketCanEndpoint::open_and_bind() {
  const CanStatus opened = socket_ < 0 ? open_socket() : CanStatus::ok;
  return opened == CanStatus::ok ? bind_socket() : opened;
}

/// Fails when there is no descriptor left, which may be otherwise the next time.
CanStatus SocketCanEndpoint::open_socket() {
  const int opened = ::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
  if (opened < 0) {
    return failed(errno);
  }
  socket_ = opened;
  if (wants_arrivals_) {
    note_arrivals_on_socket();
  }
  return CanStatus::ok;
}

CanStatus SocketCanEndpoint::bind_socket() {
  std::optional<ifreq> request = request_about(interface_);
  // Asked on this very socket, as any other way takes a descriptor more.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): the only way to ask for it
  if (!request || ::ioctl(socket_, SIOCGIFINDEX, &*request) != 0) {
    return CanStatus::interface_missing;
  }
  sockaddr_can address{};
  address.can_family = AF_CAN;
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): how the kernel answers
  address.can_ifindex = request->ifr_ifindex;
  const can_err_mask_t errors = filters_.empty() ? 0 : CAN_ERR_BUSOFF | CAN_ERR_CRTL;
  const auto filter_bytes = static_cast<socklen_t>(filters_.size() * sizeof(can_filter));
  const bool done =
      ::setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_FILTER, filters_.data(), filter_bytes) == 0 &&
      ::setsockopt(socket_, SOL_CAN_RAW, CAN_RAW_ERR_FILTER, &errors, sizeof errors) == 0 &&
      // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): as the socket interface has it
      ::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (!done) {
    return failed(errno);
  }
  is_bound_ = true;
  return CanStatus::ok;
}

CanStatus SocketCanEndpoint::status_of(int error) {
  switch (error) {
    case ENETDOWN:
      return CanStatus::interface_down;
    case ENODEV:
    case ENXIO:
      is_bound_ = false;
      return CanStatus::interface_missing;
    default:
      return failed(error);
  }
}

CanStatus SocketCanEndpoint::failed(int error) {
  system_error_ = error;
  return CanStatus::failed;
}

/// Sets how long the kernel lets a receive wait, unless it is set so already.
void SocketCanEndpoint::set_timeout(nanoseconds timeout) {
  if (timeout == kernel_timeout_) {
    return;
  }
  const timeval time = to_timeval(timeout);
  if (::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) == 0) {
    kernel_timeout_ = timeout;
  }
}

}  // namespace

SocketCanChannel::SocketCanChannel(std::string interface) : interface_(std::move(interface)) {}

std::unique_ptr<CanEndpoint> SocketCanChannel::open(const std::vector<CanFilter>& filters) {
  return std::make_unique<SocketCanEndpoint>(interface_, filters);
}

}  // namespace velmora_can_bridge

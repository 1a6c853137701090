#include "status_text.hpp"

#include <sys/resource.h>

#include <cerrno>
#include <system_error>

namespace velmora_can_bridge {
namespace {

/// Virtual interfaces have no bit rate.
bool is_virtual(const std::string& interface) { return interface.rfind("vcan", 0) == 0; }

std::string down_text(const std::string& interface) {
  const std::string remark = is_virtual(interface)
                                 ? ""
                                 : "; before the first time: ip link set " + interface +
                                       " type can bitrate 1000000, or what the board has";
  return "interface " + interface + " is down (ip link set " + interface + " up" + remark + ")";
}

std::string missing_text(const std::string& interface) {
  const std::string help = is_virtual(interface)
                               ? "ip link add dev " + interface + " type vcan"
                               : std::string("ip link lists those that there are");
  return "there is no interface " + interface + " (" + help + ")";
}

std::string too_many_files_text(const std::string& interface) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return "interface " + interface + " cannot be used: this program has too many open files, its " +
         "limit is " + std::to_string(limit.rlim_cur) + " (ulimit -n shows and raises it)";
}

std::string failed_text(const std::string& interface, int system_error) {
  switch (system_error) {
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
      return "this kernel has no SocketCAN, so there is no interface " + interface;
    case EMFILE:
      return too_many_files_text(interface);
    case ENFILE:
      return "interface " + interface + " cannot be used: all programs together have too many " +
             "open files (sysctl fs.file-max shows and raises the limit)";
    case ENODEV:
      return "interface " + interface + " is no CAN interface";
    default:
      return "interface " + interface + ": " + std::generic_category().message(system_error);
  }
}

}  // namespace

std::string status_text(CanStatus status, const std::string& interface, int system_error) {
  switch (status) {
    case CanStatus::ok:
      return "interface " + interface + " works";
    case CanStatus::timed_out:
      return "no frame came on " + interface;
    case CanStatus::queue_full:
      return "the transmit queue of " + interface +
             " stays full: no node acknowledges frames, or txqueuelen is too small (ip link set " +
             interface + " txqueuelen 1000)";
    case CanStatus::interface_down:
      return down_text(interface);
    case CanStatus::interface_missing:
      return missing_text(interface);
    case CanStatus::bus_off:
      return interface + " is bus-off after too many errors: check wiring, termination and bit " +
             "rate, then ip link set " + interface + " type can restart";
    case CanStatus::error_passive:
      return interface + " is error-passive: check wiring, termination and bit rate";
    case CanStatus::failed:
      return failed_text(interface, system_error);
  }
  return "interface " + interface + " is in an unknown state";
}

std::string too_many_filters_text(const std::string& interface, std::size_t filters,
                                  std::size_t limit) {
  return "interface " + interface + " cannot be used: " + std::to_string(filters) +
         " filters on one socket, the kernel takes " + std::to_string(limit) +
         " (CAN_RAW_FILTER_MAX)";
}

}  // namespace velmora_can_bridge

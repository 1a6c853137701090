#include "status_text.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct StatusCase {
  std::string name;
  CanStatus status;
  std::string interface;
  int system_error;
  std::string text;
};

std::string open_file_limit() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return std::to_string(limit.rlim_cur);
}

void PrintTo(const StatusCase& row, std::ostream* out) { *out << row.name; }

class StatusTextTest : public testing::TestWithParam<StatusCase> {};

TEST_P(StatusTextTest, says_what_it_means_and_what_helps) {
  EXPECT_EQ(status_text(GetParam().status, GetParam().interface, GetParam().system_error),
            GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    all, StatusTextTest,
    testing::Values(
        StatusCase{"ok", CanStatus::ok, "can0", 0, "interface can0 works"},
        StatusCase{"timed_out", CanStatus::timed_out, "can0", 0, "no frame came on can0"},
        StatusCase{"queue_full", CanStatus::queue_full, "can0", 0,
                   "the transmit queue of can0 stays full: no node acknowledges frames, or "
                   "txqueuelen is too small (ip link set can0 txqueuelen 1000)"},
        StatusCase{
            "down", CanStatus::interface_down, "can0", 0,
            "interface can0 is down (ip link set can0 up; before the first time: ip link set "
            "can0 type can bitrate 1000000, or what the board has)"},
        StatusCase{"virtual_down", CanStatus::interface_down, "vcan0", 0,
                   "interface vcan0 is down (ip link set vcan0 up)"},
        StatusCase{"missing", CanStatus::interface_missing, "can0", 0,
                   "there is no interface can0 (ip link lists those that there are)"},
        StatusCase{"virtual_missing", CanStatus::interface_missing, "vcan7", 0,
                   "there is no interface vcan7 (ip link add dev vcan7 type vcan)"},
        StatusCase{"virtual_in_the_middle_of_a_name", CanStatus::interface_missing, "myvcan", 0,
                   "there is no interface myvcan (ip link lists those that there are)"},
        StatusCase{"bus_off", CanStatus::bus_off, "can0", 0,
                   "can0 is bus-off after too many errors: check wiring, termination and bit rate, "
                   "then ip link set can0 type can restart"},
        StatusCase{"error_passive", CanStatus::error_passive, "can0", 0,
                   "can0 is error-passive: check wiring, termination and bit rate"},
        StatusCase{"no_socket_can", CanStatus::failed, "can0", EAFNOSUPPORT,
                   "this kernel has no SocketCAN, so there is no interface can0"},
        StatusCase{"no_raw_sockets", CanStatus::failed, "can0", EPROTONOSUPPORT,
                   "this kernel has no SocketCAN, so there is no interface can0"},
        StatusCase{"no_descriptor_for_this_program", CanStatus::failed, "can0", EMFILE,
                   "interface can0 cannot be used: this program has too many open files, its "
                   "limit is " +
                       open_file_limit() + " (ulimit -n shows and raises it)"},
        StatusCase{"no_descriptor_in_the_system", CanStatus::failed, "can0", ENFILE,
                   "interface can0 cannot be used: all programs together have too many open files "
                   "(sysctl fs.file-max shows and raises the limit)"},
        StatusCase{"no_can_interface", CanStatus::failed, "lo", ENODEV,
                   "interface lo is no CAN interface"},
        StatusCase{"any_other_error", CanStatus::failed, "can0", EPERM,
                   "interface can0: Operation not permitted"},
        StatusCase{"error_of_no_failure_is_ignored", CanStatus::interface_down, "vcan0", EPERM,
                   "interface vcan0 is down (ip link set vcan0 up)"},
        StatusCase{"unknown", static_cast<CanStatus>(99), "can0", 0,
                   "interface can0 is in an unknown state"}),
    [](const testing::TestParamInfo<StatusCase>& row) { return row.param.name; });

TEST(StatusText, tells_how_many_filters_are_too_many) {
  EXPECT_EQ(too_many_filters_text("can0", 600, 512),
            "interface can0 cannot be used: 600 filters on one socket, the kernel takes 512 "
            "(CAN_RAW_FILTER_MAX)");
}

}  // namespace
}  // namespace velmora_can_bridge

#include "exit_status.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace velmora_can_bridge {
namespace {

TEST(ExitStatus, has_a_number_and_a_word) {
  struct Case {
    ExitStatus status;
    int number;
    std::string_view word;
  };
  const std::vector<Case> cases{
      {ExitStatus::success, 0, "done"},        {ExitStatus::operation_failed, 1, "failed"},
      {ExitStatus::bad_input, 2, "usage"},     {ExitStatus::no_answer, 3, "no_answer"},
      {ExitStatus::bus_fault, 4, "bus_fault"}, {ExitStatus::interrupted, 130, "interrupted"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(static_cast<int>(row.status), row.number);
    EXPECT_EQ(exit_status_word(row.status), row.word);
  }
}

TEST(ExitStatus, tells_a_refusal_from_silence_and_from_a_broken_bus) {
  struct Case {
    BusErrorKind kind;
    ExitStatus status;
  };
  const std::vector<Case> cases{
      {BusErrorKind::refused, ExitStatus::operation_failed},
      {BusErrorKind::no_answer, ExitStatus::no_answer},
      {BusErrorKind::bad_answer, ExitStatus::no_answer},
      {BusErrorKind::bus_fault, ExitStatus::bus_fault},
      {BusErrorKind::not_configured, ExitStatus::bad_input},
      {BusErrorKind::stopped, ExitStatus::interrupted},
  };
  for (const Case& row : cases) {
    BusError error;
    error.kind = row.kind;
    EXPECT_EQ(exit_status_of(error), row.status) << static_cast<int>(row.kind);
  }
}

TEST(ExitStatus, of_a_channel) {
  struct Case {
    CanStatus channel;
    ExitStatus status;
  };
  const std::vector<Case> cases{
      {CanStatus::ok, ExitStatus::success},
      {CanStatus::error_passive, ExitStatus::success},
      {CanStatus::timed_out, ExitStatus::no_answer},
      {CanStatus::queue_full, ExitStatus::bus_fault},
      {CanStatus::interface_down, ExitStatus::bus_fault},
      {CanStatus::interface_missing, ExitStatus::bus_fault},
      {CanStatus::bus_off, ExitStatus::bus_fault},
      {CanStatus::failed, ExitStatus::bus_fault},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(exit_status_of(row.channel), row.status) << static_cast<int>(row.channel);
  }
}

}  // namespace
}  // namespace velmora_can_bridge

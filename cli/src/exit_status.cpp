#include "exit_status.hpp"

namespace velmora_can_bridge {
namespace {

ExitStatus status_of(const OperationResult& result, const std::optional<BusError>& error) {
  if (result.ok) {
    return ExitStatus::success;
  }
  return error ? exit_status_of(*error) : ExitStatus::operation_failed;
}

}  // namespace

std::string_view exit_status_word(ExitStatus status) {
  switch (status) {
    case ExitStatus::success:
      return "done";
    case ExitStatus::operation_failed:
      return "failed";
    case ExitStatus::bad_input:
      return "usage";
    case ExitStatus::no_answer:
      return "no_answer";
    case ExitStatus::bus_fault:
      return "bus_fault";
    case ExitStatus::interrupted:
      return "interrupted";
  }
  return "failed";
}

ExitStatus exit_status_of(const BusError& error) {
  switch (error.kind) {
    case BusErrorKind::no_answer:
    case BusErrorKind::bad_answer:
      return ExitStatus::no_answer;
    case BusErrorKind::bus_fault:
      return ExitStatus::bus_fault;
    case BusErrorKind::not_configured:
      return ExitStatus::bad_input;
    case BusErrorKind::stopped:
      return ExitStatus::interrupted;
    case BusErrorKind::refused:
    case BusErrorKind::bus_warning:
    case BusErrorKind::late_answer:
    case BusErrorKind::short_answer:
      return ExitStatus::operation_failed;
  }
  return ExitStatus::operation_failed;
}

ExitStatus exit_status_of(const OperationReport& report) {
  return status_of(report.result, report.error);
}

ExitStatus exit_status_of(const Explanation& explanation) {
  return status_of(explanation.result, explanation.error);
}

ExitStatus exit_status_of(CanStatus status) {
  switch (status) {
    case CanStatus::ok:
    case CanStatus::error_passive:
      return ExitStatus::success;
    case CanStatus::timed_out:
      return ExitStatus::no_answer;
    case CanStatus::queue_full:
    case CanStatus::interface_down:
    case CanStatus::interface_missing:
    case CanStatus::bus_off:
    case CanStatus::failed:
      return ExitStatus::bus_fault;
  }
  return ExitStatus::bus_fault;
}

}  // namespace velmora_can_bridge

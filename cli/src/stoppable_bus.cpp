#include "stoppable_bus.hpp"

#include <string>
#include <string_view>

#include "ground/number_text.hpp"
#include "interface_channel.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::nanoseconds;

/// The reason of the bus stays: it may be that an outcome is unknown.
BusError interrupted(BusError error) {
  constexpr std::string_view stopped = "stopped";
  const bool says_it = error.text.rfind(stopped, 0) == 0;
  error.kind = BusErrorKind::stopped;
  error.text = "interrupted" + (says_it ? error.text.substr(stopped.size()) : "; " + error.text);
  return error;
}

std::string milliseconds_text(nanoseconds time) {
  return std::to_string(std::chrono::ceil<std::chrono::milliseconds>(time).count()) + " ms";
}

}  // namespace

StoppableBus::StoppableBus(const CommandLineHost& host, CanChannel& channel, SdoTimes times)
    : host_(&host),
      channel_(channel, host.interrupted,
               {[this] { question_.is_sent = true; }, [this](nanoseconds left) { stop(left); }}),
      bus_(channel_, times, warning_printer(host)) {}

bool StoppableBus::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                            std::vector<std::uint8_t>& data) {
  return ask({node_id, index, sub_index},
             [&] { return bus_.sdo_read(node_id, index, sub_index, data); });
}

bool StoppableBus::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                             const std::vector<std::uint8_t>& data) {
  return ask({node_id, index, sub_index},
             [&] { return bus_.sdo_write(node_id, index, sub_index, data); });
}

bool StoppableBus::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                             const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  return ask({node_id}, [&] { return bus_.send_rpdo(node_id, rpdo, data, length); });
}

template <typename Call>
bool StoppableBus::ask(const Question& question, const Call& call) {
  question_ = question;
  if (is_interrupted(*host_)) {
    last_error_ = BusError();
    last_error_.kind = BusErrorKind::stopped;
    last_error_.node_id = question.node_id;
    last_error_.index = question.index;
    last_error_.sub_index = question.sub_index;
    last_error_.text = "interrupted";
    return false;
  }
  if (call()) {
    return true;
  }
  last_error_ = bus_.last_error(question.node_id).value_or(BusError());
  if (is_interrupted(*host_)) {
    last_error_ = interrupted(last_error_);
  }
  return false;
}

void StoppableBus::await_late_answers() {
  host_->out.flush();  // the result need not wait for this
  is_ending_ = true;
  if (is_interrupted(*host_)) {
    bus_.stop();
  }
  for (const std::uint8_t node_id : bus_.await_late_answers()) {
    print_diagnostic(*host_, "interrupted; not listening for the late answer of node " +
                                 hex<2>(node_id) +
                                 ": a command that follows at once may take it for its own");
  }
}

/// Inside a receive of the question, which waits `left` longer at most.
void StoppableBus::stop(nanoseconds left) {
  bus_.stop();
  if (is_ending_ || has_said_ || (question_.is_sent && left == nanoseconds(0))) {
    // There is nothing to wait for, or that was said.
    return;
  }
  has_said_ = true;
  print_diagnostic(*host_, question_.is_sent
                               ? "interrupted; waiting for the answer of node " +
                                     hex<2>(question_.node_id) + " about object " +
                                     object_text(question_.index, question_.sub_index) +
                                     ", at most " + milliseconds_text(left)
                               : "interrupted");
}

}  // namespace velmora_can_bridge

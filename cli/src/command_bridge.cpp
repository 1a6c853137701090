#include "command_bridge.hpp"

#include <string>
#include <utility>
#include <variant>

#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "interface_channel.hpp"
#include "report.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr const char* interrupted = "interrupted";

std::string milliseconds_text(nanoseconds time) {
  return std::to_string(std::chrono::ceil<milliseconds>(time).count()) + " ms";
}

}  // namespace

CommandBridge::CommandBridge(const CommandLineHost& host, CanChannel& channel, BoardFile file,
                             SdoTimes times, TransferHook told)
    : host_(&host),
      told_(std::move(told)),
      channel_(channel, host.interrupted,
               {[this] { is_sent_ = true; }, [this](nanoseconds left) { stop(left); }}),
      bridge_(channel_, std::move(file), settings(times)) {
  bridge_.add_observer([this](const BridgeEvent& event) {
    const auto* const error = std::get_if<BusError>(&event);
    if (error != nullptr && ends_no_call(error->kind)) {
      print_diagnostic(*host_, bus_error_text(*error));
    }
  });
}

BridgeSettings CommandBridge::settings(SdoTimes times) {
  BridgeSettings settings;
  settings.times = times;
  settings.before_transfer = [this](const Transfer& transfer) { begin(transfer); };
  settings.after_transfer = [this](const Transfer& transfer) { end(transfer); };
  return settings;
}

void CommandBridge::begin(const Transfer& transfer) {
  under_way_ = &transfer;
  is_sent_ = false;
  if (is_interrupted(*host_)) {
    stop_bridge();
  }
}

void CommandBridge::end(const Transfer& transfer) {
  under_way_ = nullptr;
  if (told_) {
    told_(transfer);
  }
}

void CommandBridge::idle(milliseconds time) {
  is_idle_ = true;
  bridge_.poll(time);
  is_idle_ = false;
}

void CommandBridge::await_late_answers() {
  host_->out.flush();  // the result need not wait for this
  if (is_interrupted(*host_)) {
    stop_bridge();
  }
  const std::vector<std::uint8_t> awaited = bridge_.await_late_answers();
  bridge_.poll(milliseconds(0));
  for (const std::uint8_t node_id : awaited) {
    print_diagnostic(*host_, "interrupted; not listening for the late answer of " +
                                 node_text(node_id) +
                                 ": a command that follows at once may take it for its own");
  }
}

/// Inside a receive of any endpoint, which waits `left` longer at most.
void CommandBridge::stop(nanoseconds left) {
  if (is_idle_) {
    return;
  }
  stop_bridge();
  if (under_way_ == nullptr || has_said_ || (is_sent_ && left == nanoseconds(0))) {
    return;  // there is nothing to wait for, or that was said
  }
  has_said_ = true;
  print_diagnostic(*host_, is_sent_ ? "interrupted; waiting for the answer of " +
                                          node_text(under_way_->node_id) + " about object " +
                                          object_text(under_way_->index, under_way_->sub_index) +
                                          ", at most " + milliseconds_text(left)
                                    : interrupted);
}

void CommandBridge::stop_bridge() {
  is_stopped_ = true;
  bridge_.stop(interrupted);
}

}  // namespace velmora_can_bridge

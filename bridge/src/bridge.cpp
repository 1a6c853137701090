#include "velmora_can_bridge/bridge/bridge.hpp"

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "bridge_node.hpp"
#include "explain_operation.hpp"
#include "ground/longest_wait.hpp"
#include "ground/node_text.hpp"
#include "recording_backend.hpp"
#include "sync_check.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// How long a frame, or an event of another thread, waits for one that polls.
constexpr milliseconds longest_nap{10};

void put_into_words(OperationReport& report, const CalledOperation& call) {
  const std::vector<std::uint8_t>& data = report.result.data;
  if (data.empty()) {
    return;
  }
  report.answer = answer_parts(call.node, call.device, call.config, call.payload, data);
  report.answer_words = answer_words(call.node, call.device, call.config, call.payload, data);
}

}  // namespace

Bridge::Bridge(CanChannel& channel, BoardFile file, BridgeSettings settings)
    : file_(std::move(file)),
      settings_(std::move(settings)),
      channel_(&channel),
      bus_(channel, settings_.times, [this](const BusError& error) { note(error); }),
      backend_(std::make_unique<RecordingBackend>(*this)),
      master_(channel),
      watch_(channel, settings_.heartbeat_timeout,
             [this](const NodeEvent& event) {
               guard_.note(event);
               queue(event);
             }),
      nap_(channel.open({})) {
  for (const NodeConfig& config : file_.nodes) {
    bus_.set_cob_ids(config.node_id, config.board);
    nodes_.push_back(std::make_unique<Node>(*backend_, config));
    guard_.add(config.node_id, [node = nodes_.back().get()] { node->forget(); });
    for (const auto& device : config.board.device_od_map) {
      nodes_by_device_.emplace(device.first, nodes_.back().get());
    }
  }
}

Bridge::~Bridge() = default;

OperationReport Bridge::run(const std::string& device, const std::string& operation,
                            const std::vector<std::uint8_t>& payload, RunOptions options) {
  OperationReport report{device, operation};
  const Expected<Addressed> addressed = find(device, operation);
  if (!addressed) {
    report.result.message = addressed.error();
    return report;
  }
  take_in();
  Node& node = *addressed->node;
  const CalledOperation call{*node.config, device, operation, *addressed->operation, payload};
  CallRecord record(*this, options, node, call);
  report.result = node.controller.execute_configured_operation(call.config, device, payload);
  record.fill(report, call);
  put_into_words(report, call);
  return report;
}

OperationReport Bridge::run(const std::string& device, const std::string& operation,
                            const std::vector<std::uint8_t>& payload, Detail detail) {
  return run(device, operation, payload, RunOptions{detail});
}

Explanation Bridge::explain(const std::string& device, const std::string& operation,
                            const std::vector<std::uint8_t>& payload, bool force) {
  const Expected<Addressed> addressed = find(device, operation);
  if (!addressed) {
    Explanation explanation;
    explanation.device = device;
    explanation.operation = operation;
    explanation.result.message = addressed.error();
    return explanation;
  }
  take_in();
  const NodeConfig& node = *addressed->node->config;
  return explain_operation({node, device, operation, *addressed->operation, payload},
                           addressed->node->controller, addressed->node->known, force,
                           [&](std::uint16_t index, std::uint8_t sub_index) {
                             return read_object(node.node_id, index, sub_index);
                           });
}

std::uint8_t Bridge::motor_mode(const std::string& device) const {
  const auto node = nodes_by_device_.find(device);
  return node == nodes_by_device_.end() ? std::uint8_t{0}
                                        : node->second->controller.motor_mode(device);
}

Expected<Bridge::Addressed> Bridge::find(const std::string& device,
                                         const std::string& operation) const {
  Node* const node = find_node(device);
  if (node == nullptr) {
    return Unexpected{"Device not found: " + device};
  }
  const auto found = node->config->operations.find(operation);
  if (found == node->config->operations.end()) {
    return Unexpected{"Operation not found: " + operation};
  }
  return Addressed{node, &found->second};
}

/// The node of the device, or the one with that id; null when there is neither.
Bridge::Node* Bridge::find_node(const std::string& device) const {
  const auto found = nodes_by_device_.find(device);
  if (found != nodes_by_device_.end()) {
    return found->second;
  }
  const auto has_id = [&](const auto& node) { return names_node(device, node->config->node_id); };
  const auto node = std::find_if(nodes_.begin(), nodes_.end(), has_id);
  return node == nodes_.end() ? nullptr : node->get();
}

Expected<std::vector<std::uint8_t>, BusError> Bridge::read_object(std::uint8_t node_id,
                                                                  std::uint16_t index,
                                                                  std::uint8_t sub_index) {
  const CallRecord record(*this, Detail::result);
  std::vector<std::uint8_t> data;
  if (!backend_->sdo_read(node_id, index, sub_index, data)) {
    return Unexpected{*record.error()};
  }
  return data;
}

std::optional<BusError> Bridge::write_object(std::uint8_t node_id, std::uint16_t index,
                                             std::uint8_t sub_index,
                                             const std::vector<std::uint8_t>& data) {
  const CallRecord record(*this, Detail::result);
  backend_->sdo_write(node_id, index, sub_index, data);
  return record.error();
}

std::optional<BusError> Bridge::send(NmtCommand command, std::uint8_t node_id) {
  std::optional<BusError> error = guard_.send(master_, command, node_id);
  if (error) {
    note(*error);
  }
  return error;
}

std::vector<DeviceComparison> Bridge::compare_with_devices() {
  SyncCheck syncs(*channel_, [this]() -> std::optional<std::string> {
    const std::lock_guard<std::mutex> lock(events_mutex_);
    return is_stopped_ ? std::make_optional(stop_reason_) : std::nullopt;
  });
  std::vector<DeviceComparison> comparisons;
  for (const NodeConfig& node : file_.nodes) {
    comparisons.push_back(
        compare_with_device(node, [&](std::uint16_t index, std::uint8_t sub_index) {
          return read_object(node.node_id, index, sub_index);
        }));
    syncs.begin(comparisons.back());
  }
  syncs.listen();
  for (DeviceComparison& comparison : comparisons) {
    syncs.judge(comparison);
  }
  return comparisons;
}

std::optional<NmtState> Bridge::node_state(std::uint8_t node_id) {
  take_in();
  return watch_.state(node_id);
}

std::uint64_t Bridge::add_observer(BridgeObserver observer) {
  const std::lock_guard<std::mutex> lock(events_mutex_);
  ++observers_so_far_;
  if (observer) {
    observers_.emplace(
        observers_so_far_,
        Observer{events_so_far_, std::make_shared<const BridgeObserver>(std::move(observer))});
  }
  return observers_so_far_;
}

void Bridge::remove_observer(std::uint64_t observer) {
  const std::lock_guard<std::mutex> lock(events_mutex_);
  observers_.erase(observer);
}

void Bridge::poll(milliseconds timeout) {
  Time end = nap_->now() + bounded(timeout);
  take_in();
  deliver_events();
  std::unique_ptr<CanEndpoint> own;
  while (nap_->now() < end) {
    end -= nap(own, end);
    take_in();
    deliver_events();
  }
}

/// Waits for a moment by the time of the bus; on `own` where another thread naps. Answers how much
/// of it that time does not show.
nanoseconds Bridge::nap(std::unique_ptr<CanEndpoint>& own, Time end) {
  const std::unique_lock<std::mutex> lock(nap_mutex_, std::try_to_lock);
  if (!lock && !own) {
    own = channel_->open({});
  }
  CanEndpoint& endpoint = lock ? *nap_ : *own;
  const Time start = endpoint.now();
  const nanoseconds time = std::min<nanoseconds>(end - start, longest_nap);
  CanFrame none;
  if (endpoint.receive(none, time) != CanStatus::failed) {
    return nanoseconds(0);
  }
  // The system refuses at once, and would again.
  std::this_thread::sleep_for(time);
  return std::max<nanoseconds>(time - (endpoint.now() - start), nanoseconds(0));
}

void Bridge::take_in() {
  const std::lock_guard<std::mutex> lock(watch_mutex_);
  watch_.poll(milliseconds(0));
}

void Bridge::deliver_events() {
  if (CallRecord::current(*this) != nullptr) {
    return;  // inside a transfer: an observer may wait for what this thread holds
  }
  std::uint64_t last = 0;
  {
    const std::lock_guard<std::mutex> lock(events_mutex_);
    if (lost_events_ != 0) {
      events_.push_back({++events_so_far_, EventsLost{std::exchange(lost_events_, 0)}});
    }
    last = events_so_far_;
  }
  // What an observer brings about is for the next time: this call comes to an end.
  while (const std::optional<QueuedEvent> queued = next_event(last)) {
    std::uint64_t told = 0;
    while (const auto observer = next_observer(queued->number, told)) {
      (*observer)(queued->event);
    }
  }
}

/// The oldest event up to number `last`, taken off the queue.
std::optional<Bridge::QueuedEvent> Bridge::next_event(std::uint64_t last) {
  const std::lock_guard<std::mutex> lock(events_mutex_);
  if (events_.empty() || events_.front().number > last) {
    return std::nullopt;
  }
  QueuedEvent event = std::move(events_.front());
  events_.pop_front();
  return event;
}

/// The observer behind `told`, which becomes its id, that was there before the event; null when
/// there is none. Looked up each time, as one may have removed another.
std::shared_ptr<const BridgeObserver> Bridge::next_observer(std::uint64_t event,
                                                            std::uint64_t& told) {
  const std::lock_guard<std::mutex> lock(events_mutex_);
  const auto next = observers_.upper_bound(told);
  if (next == observers_.end() || next->second.since >= event) {
    return nullptr;
  }
  told = next->first;
  return next->second.observer;
}

/// Runs with locks of the backend held.
void Bridge::note(const BusError& error) {
  if (error.kind == BusErrorKind::bus_fault) {
    guard_.note(error.status);
  }
  CallRecord* const record = CallRecord::current(*this);
  if (record != nullptr && !ends_no_call(error.kind)) {
    record->note(error);
  }
  queue(error);
}

void Bridge::queue(BridgeEvent event) {
  const std::lock_guard<std::mutex> lock(events_mutex_);
  if (observers_.empty()) {
    return;
  }
  if (events_.size() >= event_limit) {
    ++lost_events_;
    return;
  }
  events_.push_back({++events_so_far_, std::move(event)});
}

void Bridge::stop(const std::string& reason) {
  {
    const std::lock_guard<std::mutex> lock(events_mutex_);
    if (is_stopped_) {
      return;
    }
    stop_reason_ = reason;
    is_stopped_ = true;
  }
  bus_.stop();
}

/// Why the transfer is not begun; no value when it is.
std::optional<BusError> Bridge::stopped_error(const Transfer& transfer) const {
  if (!is_stopped_ || UrgentScope::is_active()) {
    return std::nullopt;
  }
  BusError error;
  error.kind = BusErrorKind::stopped;
  error.node_id = transfer.node_id;
  error.index = transfer.index;
  error.sub_index = transfer.sub_index;
  const std::lock_guard<std::mutex> lock(events_mutex_);
  error.text = stop_reason_;
  return error;
}

/// A transfer that fails after a stop was stopped. The reason of the bus stays: it may be that an
/// outcome is unknown.
void Bridge::blame_stop(BusError& error) const {
  if (!is_stopped_ || UrgentScope::is_active()) {
    return;
  }
  constexpr std::string_view stopped = "stopped";
  const bool says_it = error.text.rfind(stopped, 0) == 0;
  error.kind = BusErrorKind::stopped;
  const std::lock_guard<std::mutex> lock(events_mutex_);
  error.text = stop_reason_ + (says_it ? error.text.substr(stopped.size()) : "; " + error.text);
}

}  // namespace velmora_can_bridge

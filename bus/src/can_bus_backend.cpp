#include "velmora_can_bridge/bus/can_bus_backend.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <utility>

#include "can_frame_checks.hpp"
#include "ground/longest_wait.hpp"
#include "ground/node_text.hpp"
#include "ground/pdo.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using Time = std::chrono::steady_clock::time_point;

constexpr std::size_t pdo_numbers = std::numeric_limits<std::uint8_t>::max() + 1;
// From as many time-outs in a row on a node counts as silent: one may be a frame that got lost.
constexpr unsigned silent_after = 2;
// How long a wait for the end of a quarantine does not notice a stop.
constexpr milliseconds longest_nap{10};

}  // namespace

struct CanBusBackend::Node {
  // Held for one SDO transfer: a node's transfers run one after another.
  std::mutex transfer_mutex;
  // Gives the turns on transfer_mutex.
  TurnQueue turns{transfer_mutex};
  // Opened by the first transfer.
  std::unique_ptr<SdoClient> client;
  // Receives nothing, so that a wait on it does nothing but wait by the time of the channel. Opened
  // by the first wait for the end of a quarantine.
  std::unique_ptr<CanEndpoint> nap;
  // What transfers that do not have the turn know of a silent node: until when nothing is read from
  // it, long ago when it is not silent; and how often it was found silent.
  std::atomic<Time> silent_until{Time::min()};
  std::atomic<unsigned> silences{0};
  // COB-ID of each RPDO by its number, 0 for none. Only read while operations run.
  std::array<std::uint16_t, pdo_numbers> rpdo_cob_ids{};
};

struct CanBusBackend::Request {
  std::uint8_t node_id = 0;
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  bool is_read = false;
  bool is_urgent = UrgentScope::is_active();
};

CanBusBackend::CanBusBackend(CanChannel& channel, SdoTimes times, BusObserver observer)
    : channel_(&channel),
      times_(times),
      observer_(std::move(observer)),
      rpdo_endpoint_(channel.open({})) {
  for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
    nodes_.at(node_id) = std::make_unique<Node>();
    set_cob_ids(node_id, {});
  }
}

CanBusBackend::~CanBusBackend() = default;

void CanBusBackend::set_cob_ids(std::uint8_t node_id, const BoardConfig& board) {
  if (!is_node_id(node_id)) {
    return;
  }
  auto& cob_ids = nodes_.at(node_id)->rpdo_cob_ids;
  for (std::size_t rpdo = 0; rpdo < cob_ids.size(); ++rpdo) {
    cob_ids.at(rpdo) = predefined_rpdo_cob_id(node_id, static_cast<std::uint8_t>(rpdo));
  }
  for (const PdoConfig& pdo : board.pdos) {
    if (find_pdo(board, PdoDirection::rpdo, pdo.number) == &pdo) {
      cob_ids.at(pdo.number) = cob_id_of(node_id, pdo);
    }
  }
}

bool CanBusBackend::sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                             std::vector<std::uint8_t>& data) {
  return transfer({node_id, index, sub_index, true},
                  [&](SdoClient& client) { return client.upload(index, sub_index, data); });
}

bool CanBusBackend::sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                              const std::vector<std::uint8_t>& data) {
  return transfer({node_id, index, sub_index, false},
                  [&](SdoClient& client) { return client.download(index, sub_index, data); });
}

bool CanBusBackend::send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                              const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
  if (!is_node_id(node_id)) {
    return report_node_id(node_id);
  }
  CanFrame frame{nodes_.at(node_id)->rpdo_cob_ids.at(rpdo), length, {}};
  if (frame.id == 0) {
    return report(node_id, BusErrorKind::not_configured,
                  "RPDO " + std::to_string(rpdo) +
                      " has no COB-ID: give it a cob_id in the board configuration");
  }
  if (length > data.size()) {
    return report(node_id, BusErrorKind::not_configured,
                  "RPDO " + std::to_string(rpdo) + " is longer than a CAN frame");
  }
  std::copy_n(data.begin(), length, frame.data.begin());
  const CanStatus status = rpdo_endpoint_->send(frame, bounded(times_.send_patience));
  return status == CanStatus::ok ||
         report(node_id, BusErrorKind::bus_fault, rpdo_endpoint_->explain(status), status);
}

void CanBusBackend::stop() {
  stopped_ = true;
  for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
    nodes_.at(node_id)->turns.look_again();
  }
}

std::vector<std::uint8_t> CanBusBackend::await_late_answers() {
  const std::unique_ptr<CanEndpoint> nap = channel_->open({});
  // Other threads may bring about quarantines without end.
  const Time last = nap->now() + SdoClient::longest_quarantine(times_);
  for (;;) {
    std::vector<std::uint8_t> awaited;
    Time end = Time::min();
    for (std::uint8_t node_id = 1; node_id <= highest_node_id; ++node_id) {
      const Time node_end = take_late_answers(*nodes_.at(node_id));
      if (node_end > nap->now()) {
        awaited.push_back(node_id);
        end = std::max(end, node_end);
      }
    }
    if (awaited.empty() || stopped_ || nap->now() >= last) {
      return awaited;
    }
    CanFrame none;
    nap->receive(none, std::min<nanoseconds>(std::min(end, last) - nap->now(), longest_nap));
  }
}

/// Until when more of them may come from the node.
Time CanBusBackend::take_late_answers(Node& node) {
  const UrgentScope scope;  // behind the transfer under way, and before those that wait
  const TurnQueue::Turn turn = node.turns.take();
  if (!node.client) {
    return Time::min();
  }
  node.client->take_late_answers();
  return node.client->late_answers_end();
}

std::optional<BusError> CanBusBackend::last_error(std::uint8_t node_id) const {
  const std::lock_guard<std::mutex> lock(errors_mutex_);
  return last_errors_.at(is_node_id(node_id) ? node_id : 0);
}

/// Runs one SDO transfer with the node when it is its turn.
template <typename Transfer>
bool CanBusBackend::transfer(const Request& request, const Transfer& transfer) {
  if (!is_node_id(request.node_id)) {
    return report_node_id(request.node_id);
  }
  Node& node = *nodes_.at(request.node_id);
  TurnQueue::Turn turn;
  while (!turn) {
    const unsigned silences = node.silences;
    if (const std::optional<BusError> error = hindrance(request, node)) {
      return report(*error);
    }
    turn = node.turns.take_unless([&] {
      const bool fell_silent = request.is_read && node.silences != silences;
      return !request.is_urgent && (stopped_ || fell_silent);
    });
  }
  if (!node.client) {
    node.client = open_client(request.node_id);
  }
  if (!request.is_urgent) {
    node.client->take_late_answers();  // they may put off the end of the quarantine
  }
  // Asked again with the turn, and after each wait: much may have happened meanwhile.
  std::optional<BusError> error = hindrance(request, node);
  while (!error && !request.is_urgent && time_until(node.client->quarantine_end())) {
    wait_out_quarantine(node, turn);
    node.client->take_late_answers();
    error = hindrance(request, node);
  }
  if (error) {
    return report(*error);
  }
  const SdoClient::Failure failure = transfer(*node.client);
  follow_silence(node);
  return !failure || report(*failure);
}

/// Why the transfer is not tried now; no value when it is.
std::optional<BusError> CanBusBackend::hindrance(const Request& request, const Node& node) const {
  if (request.is_urgent) {
    return {};
  }
  if (stopped_) {
    return not_tried(request, BusErrorKind::stopped, "stopped");
  }
  if (!request.is_read) {
    return {};
  }
  const std::optional<nanoseconds> left = time_until(node.silent_until);
  if (!left) {
    return {};
  }
  const auto rounded = std::chrono::ceil<milliseconds>(*left);
  return not_tried(request, BusErrorKind::no_answer,
                   "no answer to the requests before; the node is asked again in " +
                       std::to_string(rounded.count()) + " ms");
}

BusError CanBusBackend::not_tried(const Request& request, BusErrorKind kind, std::string text) {
  BusError error;
  error.kind = kind;
  error.node_id = request.node_id;
  error.index = request.index;
  error.sub_index = request.sub_index;
  error.text = std::move(text);
  return error;
}

/// How far the time lies ahead; no value when it does not.
std::optional<nanoseconds> CanBusBackend::time_until(
    std::chrono::steady_clock::time_point time) const {
  if (time == Time::min()) {
    return {};  // long ago, mostly: that is not worth a look at the clock
  }
  const nanoseconds left = time - rpdo_endpoint_->now();
  return left > nanoseconds(0) ? std::make_optional(left) : std::nullopt;
}

/// Lets those that wait know what a transfer has shown of the node.
void CanBusBackend::follow_silence(Node& node) {
  const bool is_silent = node.client->timeouts_in_row() >= silent_after;
  const Time until = is_silent ? node.client->quarantine_end() : Time::min();
  if (until == node.silent_until.load()) {
    return;
  }
  node.silent_until = until;
  if (is_silent) {
    ++node.silences;
    node.turns.look_again();
  }
}

/// Waits for the end of the quarantine as one that waits for its turn: urgent transfers go before.
void CanBusBackend::wait_out_quarantine(Node& node, TurnQueue::Turn& turn) {
  if (!node.nap) {
    node.nap = channel_->open({});
  }
  const Time end = node.client->quarantine_end();
  const unsigned silences = node.silences;
  const auto goes_on = [&] { return !stopped_ && node.silences == silences; };
  node.turns.step_aside(turn, [&] {
    CanFrame none;
    for (Time now = node.nap->now(); now < end && goes_on(); now = node.nap->now()) {
      node.nap->receive(none, std::min<nanoseconds>(end - now, longest_nap));
    }
  });
}

std::unique_ptr<SdoClient> CanBusBackend::open_client(std::uint8_t node_id) {
  return std::make_unique<SdoClient>(*channel_, node_id, times_, observer_, &stopped_);
}

/// Always false, for the caller to return.
bool CanBusBackend::report(const BusError& error) {
  {
    const std::lock_guard<std::mutex> lock(errors_mutex_);
    last_errors_.at(is_node_id(error.node_id) ? error.node_id : 0) = error;
  }
  if (observer_) {
    observer_(error);
  }
  return false;
}

bool CanBusBackend::report(std::uint8_t node_id, BusErrorKind kind, std::string text,
                           CanStatus status) {
  BusError error;
  error.kind = kind;
  error.node_id = node_id;
  error.status = status;
  error.text = std::move(text);
  return report(error);
}

bool CanBusBackend::report_node_id(std::uint8_t node_id) {
  return report(node_id, BusErrorKind::not_configured, no_node_id_text(node_id));
}

}  // namespace velmora_can_bridge

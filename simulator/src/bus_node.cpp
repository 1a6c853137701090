#include "velmora_can_bridge/simulator/bus_node.hpp"

#include <algorithm>

#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "node_drives.hpp"
#include "pdo_mapping.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint16_t heartbeat_time_index = 0x1017;
constexpr std::size_t heartbeat_time_size = 2;

/// Calls `take` with number and COB-ID of each PDO that has them.
template <typename Take>
void for_each_with_cob_id(std::uint8_t node_id, const PdosByNumber& pdos, Take take) {
  for (const auto& [number, pdo] : pdos) {
    const std::uint16_t cob_id = cob_id_of(node_id, *pdo);
    if (number != 0 && cob_id != 0) {
      take(number, cob_id);
    }
  }
}

/// CiA 301, 7.2.7: error code, error register, five bytes of the device.
CanFrame emergency_frame(std::uint16_t cob_id, const Emergency& emergency) {
  CanFrame frame{cob_id, 8, {}};
  put_little_endian(frame.data.begin(), 2, emergency.error_code);
  frame.data[2] = emergency.error_register;
  std::copy(emergency.device_data.begin(), emergency.device_data.end(), frame.data.begin() + 3);
  return frame;
}

}  // namespace

SimulatedBusNode::SimulatedBusNode(std::uint8_t node_id, const BoardConfig& board)
    : node_id_(node_id),
      rpdos_(rpdos_with_cob_id(node_id, board)),
      device_(node_id, board),
      sdo_(
          node_id,
          [this](std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data) {
            return device_.sdo_upload(index, sub_index, data);
          },
          [this](std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) {
            may_have_changed_ = true;
            return device_.sdo_download(index, sub_index, data);
          }),
      tpdos_(tpdos_with_cob_id(node_id, board)) {}

std::vector<SimulatedBusNode::Rpdo> SimulatedBusNode::rpdos_with_cob_id(std::uint8_t node_id,
                                                                        const BoardConfig& board) {
  std::vector<Rpdo> rpdos;
  for_each_with_cob_id(node_id, rpdos_of(board), [&](std::uint8_t number, std::uint16_t cob_id) {
    rpdos.push_back({cob_id, number});
  });
  return rpdos;
}

std::vector<SimulatedBusNode::Tpdo> SimulatedBusNode::tpdos_with_cob_id(std::uint8_t node_id,
                                                                        const BoardConfig& board) {
  std::vector<Tpdo> tpdos;
  for_each_with_cob_id(node_id, tpdos_of(board), [&](std::uint8_t number, std::uint16_t cob_id) {
    tpdos.push_back({cob_id, number, std::nullopt});
  });
  return tpdos;
}

std::vector<CanFilter> SimulatedBusNode::filters() const {
  if (!is_node_id(node_id_)) {
    return {};
  }
  std::vector<CanFilter> filters = {{nmt_cob_id}, {own(sdo_request_cob_id)}};
  for (const Rpdo& rpdo : rpdos_) {
    filters.push_back({rpdo.cob_id});
  }
  return filters;
}

void SimulatedBusNode::boot(std::vector<CanFrame>& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!is_node_id(node_id_)) {
    return;
  }
  start_up(frames);
  send_changes(frames);
}

void SimulatedBusNode::receive(const CanFrame& frame, std::vector<CanFrame>& answers) {
  const std::lock_guard<std::mutex> lock(mutex_);
  handle(frame, answers);
  if (may_have_changed_ && !holds_changes_) {
    send_changes(answers);
  }
}

void SimulatedBusNode::hold_changes(bool hold) {
  const std::lock_guard<std::mutex> lock(mutex_);
  holds_changes_ = hold;
}

void SimulatedBusNode::tick(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  device_.tick(elapsed);
  if (state_ == NmtState::boot_up) {
    return;
  }
  send_heartbeats(std::min(elapsed, NodeDrives::longest_tick), frames);
  send_changes(frames);
}

NmtState SimulatedBusNode::state() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return state_;
}

void SimulatedBusNode::handle(const CanFrame& frame, std::vector<CanFrame>& answers) {
  if (state_ == NmtState::boot_up) {
    return;
  }
  if (frame.id == nmt_cob_id) {
    handle_nmt(frame, answers);
  } else if (frame.id == own(sdo_request_cob_id)) {
    handle_sdo(frame, answers);
  } else {
    handle_rpdo(frame);
  }
}

void SimulatedBusNode::handle_nmt(const CanFrame& frame, std::vector<CanFrame>& answers) {
  constexpr std::uint8_t all_nodes = 0;
  const std::uint8_t addressed = frame.data[1];
  if (frame.length != 2 || (addressed != all_nodes && addressed != node_id_)) {
    return;
  }
  switch (static_cast<NmtCommand>(frame.data[0])) {
    case NmtCommand::start:
      enter(NmtState::operational);
      break;
    case NmtCommand::stop:
      enter(NmtState::stopped);
      break;
    case NmtCommand::enter_pre_operational:
      enter(NmtState::pre_operational);
      break;
    case NmtCommand::reset_node:
      device_.reset();
      start_up(answers);
      break;
    case NmtCommand::reset_communication:
      device_.reset_communication();
      start_up(answers);
      break;
  }
}

void SimulatedBusNode::handle_sdo(const CanFrame& frame, std::vector<CanFrame>& answers) {
  if (state_ == NmtState::stopped) {
    return;
  }
  if (const auto answered = sdo_.answer(frame)) {
    answers.push_back(*answered);
  }
}

void SimulatedBusNode::handle_rpdo(const CanFrame& frame) {
  if (state_ != NmtState::operational) {
    return;
  }
  for (const Rpdo& rpdo : rpdos_) {
    if (rpdo.cob_id == frame.id) {
      device_.receive_rpdo(rpdo.number, frame.data, frame.length);
      may_have_changed_ = true;
    }
  }
}

void SimulatedBusNode::start_up(std::vector<CanFrame>& frames) {
  // The boot-up message counts as the first heartbeat (CiA 301, heartbeat protocol).
  frames.push_back({own(heartbeat_cob_id), 1, {static_cast<std::uint8_t>(NmtState::boot_up)}});
  heartbeat_time_ = heartbeat_time();
  since_heartbeat_ = {};
  sdo_.reset();
  enter(NmtState::pre_operational);
}

void SimulatedBusNode::enter(NmtState state) {
  if (state == state_) {
    return;
  }
  state_ = state;
  may_have_changed_ = true;
  if (state == NmtState::stopped) {
    sdo_.reset();
  }
  for (Tpdo& tpdo : tpdos_) {
    tpdo.sent.reset();
  }
}

void SimulatedBusNode::send_changes(std::vector<CanFrame>& frames) {
  may_have_changed_ = false;
  if (state_ == NmtState::operational) {
    for (Tpdo& tpdo : tpdos_) {
      send_tpdo(tpdo, frames);
    }
  }
  if (state_ != NmtState::stopped) {
    send_emergencies(frames);
  }
}

/// Sends the TPDO unless it was sent last as it is now.
void SimulatedBusNode::send_tpdo(Tpdo& tpdo, std::vector<CanFrame>& frames) {
  const std::optional<PdoFrame> now = device_.tpdo_frame(tpdo.number);
  const bool is_due = now && (!tpdo.sent || tpdo.sent->data != now->data);
  if (is_due) {
    frames.push_back({tpdo.cob_id, now->length, now->data});
    tpdo.sent = now;
  }
}

void SimulatedBusNode::send_emergencies(std::vector<CanFrame>& frames) {
  for (const Emergency& emergency : device_.take_unsent_emergencies()) {
    frames.push_back(emergency_frame(own(emergency_cob_id), emergency));
  }
}

void SimulatedBusNode::send_heartbeats(std::chrono::milliseconds elapsed,
                                       std::vector<CanFrame>& frames) {
  const std::chrono::milliseconds period = heartbeat_time();
  if (period != heartbeat_time_) {
    heartbeat_time_ = period;
    since_heartbeat_ = {};
  }
  if (period.count() == 0 || elapsed.count() <= 0) {
    return;
  }
  for (since_heartbeat_ += elapsed; since_heartbeat_ >= period; since_heartbeat_ -= period) {
    frames.push_back({own(heartbeat_cob_id), 1, {static_cast<std::uint8_t>(state_)}});
  }
}

/// Object 0x1017; 0, which sends none, also when something of another size replaces it.
std::chrono::milliseconds SimulatedBusNode::heartbeat_time() const {
  const auto value = device_.object_value(heartbeat_time_index, 0);
  if (!value || value->size() != heartbeat_time_size) {
    return {};
  }
  return std::chrono::milliseconds(static_cast<std::uint16_t>(little_endian_number(*value)));
}

std::uint16_t SimulatedBusNode::own(std::uint16_t cob_id) const {
  return static_cast<std::uint16_t>(cob_id + node_id_);
}

}  // namespace velmora_can_bridge

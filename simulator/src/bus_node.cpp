#include "velmora_can_bridge/simulator/bus_node.hpp"

#include <algorithm>
#include <utility>

#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "node_drives.hpp"
#include "node_faults.hpp"
#include "node_parameters.hpp"
#include "velmora_can_bridge/bus/cob_id.hpp"
#include "velmora_can_bridge/bus/sdo_frames.hpp"

namespace velmora_can_bridge {
namespace {

// Transmission types from here on go when something happens, those below with the SYNC.
constexpr std::uint8_t event_driven_by_maker = 254;
// With the SYNC, when something has happened.
constexpr std::uint8_t acyclic = 0;
constexpr std::uint8_t highest_cyclic = 240;

bool goes_at_once(const PdoCommunication& pdo) { return pdo.transmission >= event_driven_by_maker; }

/// What was kept of the PDO of that number; something new when nothing was, or of another type: a
/// frame that waited for a SYNC would come behind newer ones.
template <typename Kept>
Kept kept_of(const std::vector<Kept>& all, const PdoCommunication& pdo) {
  const auto found = std::find_if(all.begin(), all.end(), [&](const Kept& kept) {
    return kept.pdo.number == pdo.number && kept.pdo.cob_id == pdo.cob_id &&
           kept.pdo.transmission == pdo.transmission;
  });
  Kept kept = found == all.end() ? Kept{} : *found;
  kept.pdo = pdo;
  return kept;
}

template <typename Kept>
std::vector<Kept> kept_of(const std::vector<Kept>& all, const std::vector<PdoCommunication>& pdos) {
  std::vector<Kept> kept;
  kept.reserve(pdos.size());
  for (const PdoCommunication& pdo : pdos) {
    kept.push_back(kept_of(all, pdo));
  }
  return kept;
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
      device_(node_id, board),
      sdo_(
          node_id,
          [this](std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data) {
            const std::optional<SdoAbort> abort = device_.sdo_upload(index, sub_index, data);
            shorten(data);
            return abort;
          },
          [this](std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) {
            may_have_changed_ = true;
            return device_.sdo_download(index, sub_index, data);
          }) {
  take_in_parameters();
}

SimulatedBusNode::~SimulatedBusNode() = default;

void SimulatedBusNode::set_faults(const std::vector<Fault>& faults) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (faults_) {
    faults_->end_all();
    // Nothing that ends sends anything.
    std::vector<CanFrame> none;
    follow_faults(none);
    late_answers_.clear();
  }
  const bool has_any = std::any_of(faults.begin(), faults.end(),
                                   [&](const Fault& fault) { return fault.node_id == node_id_; });
  faults_ = has_any ? std::make_unique<NodeFaults>(node_id_, faults) : nullptr;
}

std::vector<FaultEffect> SimulatedBusNode::take_fault_effects() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return faults_ ? faults_->take_effects() : std::vector<FaultEffect>();
}

std::vector<CanFilter> SimulatedBusNode::filters() const {
  if (!is_node_id(node_id_)) {
    return {};
  }
  // All identifiers but those of SDO transfers with other nodes.
  return {{nmt_cob_id},
          {own(sdo_request_cob_id)},
          {own(sdo_answer_cob_id)},
          {sync_cob_id, function_mask},
          {time_cob_id},
          {0x180, function_mask},
          {0x200, 0x600},
          {0x400, 0x700},
          {0x500, function_mask},
          {sdo_answer_cob_id},
          {sdo_request_cob_id},
          {0x680, function_mask},
          {heartbeat_cob_id, 0x700}};
}

void SimulatedBusNode::boot(std::vector<CanFrame>& frames) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!is_node_id(node_id_)) {
    return;
  }
  start_up(frames);
  begin_and_end_faults(frames);
  send_changes(frames);
}

void SimulatedBusNode::receive(const CanFrame& frame, std::vector<CanFrame>& answers) {
  const std::lock_guard<std::mutex> lock(mutex_);
  take_in_parameters();
  handle(frame, answers);
  take_in_parameters();
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
  take_in_parameters();
  if (may_have_changed_ && state_ != NmtState::boot_up) {
    // What is held back is shown before time passes over it, such as a quick stop at standstill.
    send_changes(frames);
  }
  if (state_ == NmtState::boot_up) {
    device_.tick(elapsed);
    return;
  }
  std::chrono::milliseconds left =
      std::clamp(elapsed, std::chrono::milliseconds(0), NodeDrives::longest_tick);
  do {
    const std::chrono::milliseconds part = faults_ ? faults_->until_next(left) : left;
    pass(part, frames);
    begin_and_end_faults(frames);
    left -= part;
  } while (left.count() > 0);
}

void SimulatedBusNode::pass(std::chrono::milliseconds elapsed, std::vector<CanFrame>& frames) {
  device_.tick(elapsed);
  if (faults_) {
    faults_->pass(elapsed);
  }
  for (Tpdo& tpdo : tpdos_) {
    tpdo.since_sent += elapsed;
    tpdo.since_event += elapsed;
  }
  send_late_answers(elapsed, frames);
  send_heartbeats(elapsed, frames);
  look_after_heartbeats(elapsed, frames);
  send_changes(frames);
}

void SimulatedBusNode::begin_and_end_faults(std::vector<CanFrame>& frames) {
  if (!faults_) {
    return;
  }
  faults_->follow_time();
  follow_faults(frames);
  take_in_parameters();
  if (may_have_changed_) {
    send_changes(frames);
  }
}

NmtState SimulatedBusNode::state() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return state_;
}

bool SimulatedBusNode::is_doubled() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_doubled_;
}

void SimulatedBusNode::handle(const CanFrame& frame, std::vector<CanFrame>& answers) {
  if (state_ == NmtState::boot_up) {
    return;
  }
  // No driver gives the node its own frames.
  is_doubled_ =
      is_doubled_ || frame.id == own(heartbeat_cob_id) || frame.id == own(sdo_answer_cob_id);
  if (frame.id == nmt_cob_id) {
    handle_nmt(frame, answers);
  } else if (frame.id == own(sdo_request_cob_id)) {
    handle_sdo(frame, answers);
  } else if (frame.id == sync_cob_id_) {
    handle_sync(answers);
  } else if ((frame.id & function_mask) == heartbeat_cob_id && frame.id != heartbeat_cob_id) {
    handle_heartbeat(frame);
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
      restart(answers);
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
  if (faults_) {
    handle_faulty_sdo(frame, answers);
  } else if (const auto answered = sdo_.answer(frame)) {
    answers.push_back(*answered);
  }
}

void SimulatedBusNode::handle_faulty_sdo(const CanFrame& frame, std::vector<CanFrame>& answers) {
  faults_->note_request(frame);
  // Of a transfer that was given up before this request.
  follow_faults(answers);
  if (const auto answered = faulty_answer(frame)) {
    const Fault* const late = faults_->strike(FaultKind::late_answer);
    if (late != nullptr) {
      late_answers_.push_back({*answered, late->lateness});
    } else {
      answers.push_back(*answered);
    }
  }
  if (!sdo_.is_in_transfer()) {
    faults_->note_end();
    follow_faults(answers);
  }
}

/// As `SdoServer::answer`, unless a fault strikes it.
std::optional<CanFrame> SimulatedBusNode::faulty_answer(const CanFrame& request) {
  if (faults_->strike(FaultKind::no_answer) != nullptr) {
    sdo_.reset();
    return std::nullopt;
  }
  if (const Fault* const abort = faults_->strike(FaultKind::abort)) {
    sdo_.reset();
    CanFrame refusal = sdo_frame(own(sdo_answer_cob_id), sdo_abort_command, sdo_index(request),
                                 sdo_sub_index(request));
    set_sdo_number(refusal, abort->code);
    return refusal;
  }
  std::optional<CanFrame> answer = sdo_.answer(request);
  const bool is_segment = answer && (sdo_command(*answer) == sdo_upload_segment_answer ||
                                     sdo_command(*answer) == sdo_download_segment_answer);
  if (is_segment && faults_->strike(FaultKind::wrong_toggle) != nullptr) {
    answer->data[0] ^= sdo_toggle_bit;
  }
  return answer;
}

void SimulatedBusNode::shorten(std::vector<std::uint8_t>& data) {
  const Fault* const fault = faults_ ? faults_->find(FaultKind::short_answer) : nullptr;
  if (fault != nullptr && data.size() > fault->bytes) {
    faults_->strike(FaultKind::short_answer);
    data.resize(fault->bytes);
  }
}

void SimulatedBusNode::follow_faults(std::vector<CanFrame>& frames) {
  for (const DueFault& due : faults_->take_changes()) {
    carry_out(due.fault, due.begins, frames);
  }
}

void SimulatedBusNode::carry_out(const Fault& fault, bool begins, std::vector<CanFrame>& frames) {
  switch (fault.kind) {
    case FaultKind::held_value:
      begins ? device_.hold_object(fault.object.index, fault.object.sub_index)
             : device_.release_object(fault.object.index, fault.object.sub_index);
      break;
    case FaultKind::drive_fault:
      device_.inject_fault(fault.device, static_cast<std::uint16_t>(fault.code));
      may_have_changed_ = true;
      break;
    case FaultKind::restart:
      restart(frames);
      break;
    default:
      break;
  }
}

void SimulatedBusNode::handle_rpdo(const CanFrame& frame) {
  if (state_ != NmtState::operational) {
    return;
  }
  for (Rpdo& rpdo : rpdos_) {
    if (rpdo.pdo.cob_id != frame.id) {
      continue;
    }
    if (goes_at_once(rpdo.pdo)) {
      device_.receive_rpdo(rpdo.pdo.number, frame.data, frame.length);
      may_have_changed_ = true;
    } else {
      rpdo.waiting = frame;
    }
  }
}

void SimulatedBusNode::handle_sync(std::vector<CanFrame>& answers) {
  if (state_ != NmtState::operational) {
    return;
  }
  for (Rpdo& rpdo : rpdos_) {
    if (rpdo.waiting) {
      device_.receive_rpdo(rpdo.pdo.number, rpdo.waiting->data, rpdo.waiting->length);
      rpdo.waiting.reset();
      may_have_changed_ = true;
    }
  }
  for (Tpdo& tpdo : tpdos_) {
    send_on_sync(tpdo, answers);
  }
}

void SimulatedBusNode::handle_heartbeat(const CanFrame& frame) {
  for (Consumer& consumer : consumers_) {
    if (consumer.heartbeat.node_id != node_id_of(frame.id)) {
      continue;
    }
    consumer.is_heard = true;
    consumer.since_heard = {};
    if (std::exchange(consumer.is_lost, false)) {
      device_.regain_heartbeat(consumer.heartbeat.node_id);
      may_have_changed_ = true;
    }
  }
}

void SimulatedBusNode::look_after_heartbeats(std::chrono::milliseconds elapsed,
                                             std::vector<CanFrame>& frames) {
  for (Consumer& consumer : consumers_) {
    consumer.since_heard += elapsed;
    if (!consumer.is_heard || consumer.since_heard < consumer.heartbeat.time) {
      continue;
    }
    consumer.is_heard = false;
    consumer.is_lost = true;
    device_.lose_heartbeat(consumer.heartbeat.node_id);
    // While the state still allows it: the quick stop is to be seen.
    send_changes(frames);
    act_on_lost_heartbeat();
  }
}

/// CiA 301, 7.5.2.32.
void SimulatedBusNode::act_on_lost_heartbeat() {
  if (state_ != NmtState::operational) {
    return;
  }
  switch (static_cast<ErrorBehaviour>(parameter({error_behaviour_index, 1}, 1))) {
    case ErrorBehaviour::pre_operational:
      enter(NmtState::pre_operational);
      break;
    case ErrorBehaviour::stopped:
      enter(NmtState::stopped);
      break;
    case ErrorBehaviour::no_change:
      break;
  }
}

/// Also after a change on the bench.
void SimulatedBusNode::take_in_parameters() {
  const std::uint64_t revision = device_.communication_revision();
  if (revision == revision_) {
    return;
  }
  revision_ = revision;
  rpdos_ = kept_of(rpdos_, device_.enabled_rpdos());
  tpdos_ = kept_of(tpdos_, device_.enabled_tpdos());
  take_in_consumers();
  sync_cob_id_ = static_cast<std::uint16_t>(parameter({sync_cob_id_index, 0}, 4) & highest_can_id);
  const std::uint64_t emergency = parameter({emergency_cob_id_index, 0}, 4);
  emergency_cob_id_ = emergency == 0 || emergency > highest_can_id
                          ? std::nullopt
                          : std::make_optional(static_cast<std::uint16_t>(emergency));
  const std::chrono::milliseconds period(parameter({producer_heartbeat_index, 0}, 2));
  if (period != heartbeat_time_) {
    heartbeat_time_ = period;
    since_heartbeat_ = {};
  }
}

void SimulatedBusNode::restart(std::vector<CanFrame>& frames) {
  device_.reset();
  start_up(frames);
}

/// Those that are waited for still go on. A lost one that nobody waits for any more is no error.
void SimulatedBusNode::take_in_consumers() {
  std::vector<Consumer> consumers;
  for (const HeartbeatConsumer& heartbeat : device_.heartbeat_consumers()) {
    const auto found = std::find_if(
        consumers_.begin(), consumers_.end(),
        [&](const Consumer& consumer) { return consumer.heartbeat.node_id == heartbeat.node_id; });
    consumers.push_back(found == consumers_.end() ? Consumer{} : *found);
    consumers.back().heartbeat = heartbeat;
    if (found != consumers_.end()) {
      found->is_lost = false;
    }
  }
  consumers_.swap(consumers);
  for (const Consumer& earlier : consumers) {
    if (earlier.is_lost) {
      device_.regain_heartbeat(earlier.heartbeat.node_id);
      may_have_changed_ = true;
    }
  }
}

void SimulatedBusNode::start_up(std::vector<CanFrame>& frames) {
  // The boot-up message counts as the first heartbeat (CiA 301, heartbeat protocol).
  frames.push_back({own(heartbeat_cob_id), 1, {static_cast<std::uint8_t>(NmtState::boot_up)}});
  since_heartbeat_ = {};
  for (Consumer& consumer : consumers_) {
    consumer = {consumer.heartbeat};
  }
  forget_transfer();
  enter(NmtState::pre_operational);
}

void SimulatedBusNode::forget_transfer() {
  sdo_.reset();
  late_answers_.clear();
}

void SimulatedBusNode::enter(NmtState state) {
  if (state == state_) {
    return;
  }
  state_ = state;
  may_have_changed_ = true;
  if (state == NmtState::stopped) {
    forget_transfer();
  }
  for (Rpdo& rpdo : rpdos_) {
    rpdo.waiting.reset();
  }
  for (Tpdo& tpdo : tpdos_) {
    tpdo = {tpdo.pdo};
  }
}

void SimulatedBusNode::send_changes(std::vector<CanFrame>& frames) {
  may_have_changed_ = false;
  if (state_ == NmtState::operational) {
    for (Tpdo& tpdo : tpdos_) {
      send_if_due(tpdo, frames);
    }
  }
  if (state_ != NmtState::stopped) {
    send_emergencies(frames);
  }
}

/// Sends a TPDO that waits for no SYNC, if it has changed or its event timer has run out.
void SimulatedBusNode::send_if_due(Tpdo& tpdo, std::vector<CanFrame>& frames) {
  const std::optional<PdoFrame> now = device_.tpdo_frame(tpdo.pdo.number);
  if (!now || !goes_at_once(tpdo.pdo)) {
    return;
  }
  const bool has_changed = !tpdo.sent || tpdo.sent->data != now->data;
  const bool has_run_out =
      tpdo.pdo.event_timer.count() > 0 && tpdo.since_event >= tpdo.pdo.event_timer;
  const bool is_inhibited = tpdo.sent && tpdo.since_sent < tpdo.pdo.inhibit_time;
  if ((has_changed || has_run_out) && !is_inhibited) {
    send(tpdo, *now, frames);
  }
}

void SimulatedBusNode::send_on_sync(Tpdo& tpdo, std::vector<CanFrame>& frames) {
  const std::optional<PdoFrame> now = device_.tpdo_frame(tpdo.pdo.number);
  if (!now || tpdo.pdo.transmission > highest_cyclic) {
    return;
  }
  const bool has_changed = !tpdo.sent || tpdo.sent->data != now->data;
  ++tpdo.syncs;
  const bool is_due =
      tpdo.pdo.transmission == acyclic ? has_changed : tpdo.syncs >= tpdo.pdo.transmission;
  if (is_due) {
    send(tpdo, *now, frames);
  }
}

void SimulatedBusNode::send(Tpdo& tpdo, const PdoFrame& content, std::vector<CanFrame>& frames) {
  frames.push_back({tpdo.pdo.cob_id, content.length, content.data});
  tpdo.sent = content;
  tpdo.since_sent = {};
  tpdo.since_event = {};
  tpdo.syncs = 0;
}

void SimulatedBusNode::send_emergencies(std::vector<CanFrame>& frames) {
  for (const Emergency& emergency : device_.take_unsent_emergencies()) {
    if (emergency_cob_id_) {
      frames.push_back(emergency_frame(*emergency_cob_id_, emergency));
    }
  }
}

/// One that is due, not those that were missed: they would tell of times that have passed.
void SimulatedBusNode::send_heartbeats(std::chrono::milliseconds elapsed,
                                       std::vector<CanFrame>& frames) {
  if (heartbeat_time_.count() == 0) {
    return;
  }
  since_heartbeat_ += elapsed;
  if (elapsed.count() <= 0 || since_heartbeat_ < heartbeat_time_) {
    return;
  }
  since_heartbeat_ %= heartbeat_time_;
  const bool is_silent = faults_ && faults_->silences_heartbeat();
  if (!is_silent) {
    frames.push_back({own(heartbeat_cob_id), 1, {static_cast<std::uint8_t>(state_)}});
  }
}

void SimulatedBusNode::send_late_answers(std::chrono::milliseconds elapsed,
                                         std::vector<CanFrame>& frames) {
  for (LateAnswer& late : late_answers_) {
    late.left -= elapsed;
    if (late.left.count() <= 0) {
      frames.push_back(late.frame);
    }
  }
  late_answers_.erase(std::remove_if(late_answers_.begin(), late_answers_.end(),
                                     [](const LateAnswer& late) { return late.left.count() <= 0; }),
                      late_answers_.end());
}

/// The number in an object; 0 also when something of another size replaces it.
std::uint64_t SimulatedBusNode::parameter(ObjectAddress at, std::size_t size) const {
  const auto value = device_.object_value(at.index, at.sub_index);
  return value && value->size() == size ? little_endian_number(*value) : 0;
}

std::uint16_t SimulatedBusNode::own(std::uint16_t cob_id) const {
  return static_cast<std::uint16_t>(cob_id + node_id_);
}

}  // namespace velmora_can_bridge

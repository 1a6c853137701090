#include "trouble_maker.hpp"

#include <algorithm>
#include <thread>
#include <utility>

#include "velmora_can_bridge/bus/cob_id.hpp"

namespace velmora_can_bridge::soak {
namespace {

constexpr std::size_t most_episodes = 8;
constexpr int frames_of_babble = 200;

FaultRates rates_of(Trouble kind) {
  switch (kind) {
    case Trouble::lost_frames:
      return {20, 0, 0};
    case Trouble::late_frames:
      return {0, 20, 0};
    case Trouble::doubled_frames:
      return {0, 0, 40};
    case Trouble::mixed_faults:
      return {8, 8, 8};
    case Trouble::silence:
      return {100, 0, 0};
    default:
      return {};
  }
}

SoakNode::Harm harm_of(Trouble kind) {
  const bool restarts = kind == Trouble::restart || kind == Trouble::restart_by_bridge;
  return restarts ? SoakNode::Harm::restart : SoakNode::Harm::any;
}

}  // namespace

TroubleMaker::TroubleMaker(World& world, CanChannel& channel, Faults& faults, NetworkSwitch network,
                           std::uint32_t seed)
    : world_(&world),
      endpoint_(channel.open({})),
      faults_(&faults),
      network_(std::move(network)),
      random_(seed),
      next_(Clock::now()),
      next_network_(next_ + some_time() * 4) {}

void TroubleMaker::let_all_babble() {
  for (const auto& node : world_->nodes) {
    node->begin_trouble(SoakNode::Harm::in_use);
    babble(node->id);
    node->end_trouble(Clock::now());
  }
}

void TroubleMaker::step() {
  const Time now = Clock::now();
  end_due(now);
  if (now >= next_network_) {
    take_network_down();
    next_network_ = now + some_time() * 20;
  }
  if (now < next_ || episodes_.size() >= most_episodes) {
    return;
  }
  next_ = now + some_time() / 10;
  if (SoakNode* const node = pick_sure_node()) {
    begin(static_cast<Trouble>(below(static_cast<std::uint32_t>(Trouble::network_down))), *node);
  }
}

void TroubleMaker::end_all() {
  for (const Episode& episode : std::exchange(episodes_, {})) {
    end(episode);
  }
}

void TroubleMaker::end_due(Time now) {
  for (auto episode = episodes_.begin(); episode != episodes_.end();) {
    if (episode->end > now) {
      ++episode;
    } else {
      end(*episode);
      episode = episodes_.erase(episode);
    }
  }
}

/// A late request may have a late answer.
void TroubleMaker::end(const Episode& episode) {
  faults_->set(episode.node->id, {});
  episode.node->end_trouble(Clock::now() + faults_->longest_delay() * 2);
}

void TroubleMaker::begin(Trouble kind, SoakNode& node) {
  node.begin_trouble(harm_of(kind));
  world_->report.count(kind);
  faults_->set(node.id, rates_of(kind));
  if (kind == Trouble::restart) {
    // The boot-up message is missed now and then.
    faults_->set(node.id, {static_cast<std::uint8_t>(100 * below(2)), 0, 0});
    send_nmt(below(2) == 0 ? NmtCommand::reset_node : NmtCommand::reset_communication, node.id);
  } else if (kind == Trouble::restart_by_bridge) {
    world_->bridge.send(NmtCommand::reset_node, node.id);
  } else if (kind == Trouble::stop) {
    send_nmt(NmtCommand::stop, node.id);
  } else if (kind == Trouble::babble) {
    babble(node.id);
  }
  episodes_.push_back({kind, &node, Clock::now() + some_time()});
}

/// Waits meanwhile: no other trouble begins.
void TroubleMaker::take_network_down() {
  for (const auto& node : world_->nodes) {
    node->begin_trouble(SoakNode::Harm::in_use);
  }
  world_->report.count(Trouble::network_down);
  network_(false);
  std::this_thread::sleep_for(some_time() / 2);
  network_(true);
  for (const auto& node : world_->nodes) {
    node->end_trouble(Clock::now() + faults_->longest_delay() * 2);
  }
}

void TroubleMaker::send_nmt(NmtCommand command, std::uint8_t node_id) {
  CanFrame frame;
  frame.length = 2;
  frame.data[0] = static_cast<std::uint8_t>(command);
  frame.data[1] = node_id;
  endpoint_->send(frame, milliseconds(20));
}

void TroubleMaker::babble(std::uint8_t node_id) {
  for (int frame = 0; frame < frames_of_babble; ++frame) {
    endpoint_->send(babbled(node_id), milliseconds(0));
  }
}

/// What no client can tell from the answer that it waits for is left out: an upload's, of the very
/// object or by segments.
CanFrame TroubleMaker::babbled(std::uint8_t node_id) {
  static constexpr std::uint8_t commands[] = {0x43, 0x60, 0x80, 0x20, 0x30, 0xFF};
  CanFrame frame;
  const std::uint32_t choice = below(10);
  const std::uint16_t function = choice == 0   ? heartbeat_cob_id
                                 : choice == 1 ? emergency_cob_id
                                 : choice == 2 ? std::uint16_t{0x180}
                                               : sdo_answer_cob_id;
  frame.id = static_cast<std::uint16_t>(function + node_id);
  frame.length = static_cast<std::uint8_t>(choice == 0 ? 1 : below(4) == 0 ? below(9) : 8);
  for (std::uint8_t byte = 0; byte < frame.length; ++byte) {
    frame.data.at(byte) = static_cast<std::uint8_t>(below(256));
  }
  if (function == sdo_answer_cob_id && frame.length != 0) {
    frame.data[0] = commands[below(std::size(commands))];
    const std::uint16_t index = frame.data[0] == 0x43 ? std::uint16_t{0x5FFF} : word_object;
    frame.data[1] = static_cast<std::uint8_t>(index & 0xFFU);
    frame.data[2] = static_cast<std::uint8_t>(index >> 8U);
    frame.data[3] = static_cast<std::uint8_t>(1 + below(threads));
    std::fill(frame.data.begin() + frame.length, frame.data.end(), std::uint8_t{0});
  }
  if (choice == 0) {
    static constexpr std::uint8_t states[] = {0x00, 0x04, 0x05, 0x7F};
    frame.data[0] = states[below(std::size(states))];
  }
  return frame;
}

/// None when too many others are still to be made sure of.
SoakNode* TroubleMaker::pick_sure_node() {
  const std::uint32_t first = below(3) == 0 ? world_->crowded_node - 1U : below(nodes);
  SoakNode& node = *world_->nodes.at(first);
  return node.is_troubled() ? nullptr : &node;
}

milliseconds TroubleMaker::some_time() {
  return milliseconds(200 + below(800)) * (world_->pace.frame_timeout / milliseconds(400));
}

}  // namespace velmora_can_bridge::soak

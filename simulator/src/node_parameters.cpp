#include "node_parameters.hpp"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "ground/little_endian.hpp"
#include "ground/pdo.hpp"
#include "object_numbers.hpp"
#include "velmora_can_bridge/node_id.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint32_t save_signature = 0x65766173;  // "save", the lowest byte first
constexpr std::uint32_t load_signature = 0x64616F6C;  // "load"
// On command, and not by itself.
constexpr std::uint32_t stores_on_command = 1;

HeartbeatConsumer consumer_of(std::uint32_t entry) {
  return {static_cast<std::uint8_t>(entry >> 16U),
          std::chrono::milliseconds(static_cast<std::uint16_t>(entry))};
}

bool is_watched(const HeartbeatConsumer& consumer) {
  return is_node_id(consumer.node_id) && consumer.time.count() > 0;
}

/// Nodes produce no SYNC (bit 30), and have identifiers of 11 bits.
bool is_sync_cob_id(std::uint32_t value) {
  const std::uint32_t id = value & ~cob_id_disabled;
  return id <= highest_can_id && !is_restricted_cob_id(id);
}

bool is_emergency_cob_id(std::uint32_t before, std::uint32_t now) {
  const std::uint32_t id = now & ~cob_id_disabled;
  const bool is_enabled = (now & cob_id_disabled) == 0;
  const bool was_enabled = (before & cob_id_disabled) == 0;
  return id <= highest_can_id && !(is_enabled && is_restricted_cob_id(id)) &&
         !(is_enabled && was_enabled && before != now);
}

/// Each node is waited for once (CiA 301, 7.5.2.18).
std::optional<SdoAbort> consumer_refusal(const ObjectDictionary& objects, ObjectAddress at,
                                         std::uint32_t value) {
  constexpr std::uint32_t reserved_bits = 0xFF000000;
  const HeartbeatConsumer consumer = consumer_of(value);
  if (at.sub_index == 0) {
    return std::nullopt;
  }
  if ((value & reserved_bits) != 0) {
    return SdoAbort::invalid_value;
  }
  for (std::uint8_t sub_index = 1; sub_index <= most_consumers; ++sub_index) {
    const HeartbeatConsumer other = consumer_of(number_at(objects, {at.index, sub_index}));
    if (sub_index != at.sub_index && is_watched(consumer) && is_watched(other) &&
        consumer.node_id == other.node_id) {
      return SdoAbort::parameter_incompatible;
    }
  }
  return std::nullopt;
}

std::optional<SdoAbort> unless(bool is_taken, SdoAbort abort) {
  return is_taken ? std::nullopt : std::make_optional(abort);
}

}  // namespace

bool is_restricted_cob_id(std::uint32_t cob_id) {
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };
  constexpr Range restricted[] = {{0x000, 0x07F}, {0x101, 0x180}, {0x581, 0x5FF},
                                  {0x601, 0x67F}, {0x6E0, 0x6FF}, {0x701, 0x7FF}};
  return std::any_of(std::begin(restricted), std::end(restricted), [&](const Range& range) {
    return cob_id >= range.first && cob_id <= range.last;
  });
}

void add_node_parameters(ObjectDictionary& objects, std::uint8_t node_id) {
  constexpr auto read_only = ObjectAccess::read_only;
  constexpr auto read_write = ObjectAccess::read_write;
  add_number(objects, {error_register_index, 0}, 0, 1, read_only);
  add_number(objects, {error_history_index, 0}, 0, 1, read_write);
  for (std::uint8_t error = 1; error <= most_errors; ++error) {
    add_number(objects, {error_history_index, error}, 0, 4, read_only);
  }
  add_number(objects, {sync_cob_id_index, 0}, sync_cob_id, 4, read_write);
  add_number(objects, {store_index, 1}, stores_on_command, 4, read_write);
  add_number(objects, {restore_index, 1}, stores_on_command, 4, read_write);
  add_number(objects, {emergency_cob_id_index, 0},
             is_node_id(node_id) ? std::uint32_t{emergency_cob_id} + node_id : cob_id_disabled, 4,
             read_write);
  for (std::uint8_t consumer = 1; consumer <= most_consumers; ++consumer) {
    add_number(objects, {consumer_heartbeat_index, consumer}, 0, 4, read_write);
  }
  add_number(objects, {producer_heartbeat_index, 0}, 0, 2, read_write);
  add_number(objects, {error_behaviour_index, 1},
             static_cast<std::uint32_t>(ErrorBehaviour::pre_operational), 1, read_write);
}

std::optional<SdoAbort> node_parameter_refusal(const ObjectDictionary& objects, ObjectAddress at,
                                               const std::vector<std::uint8_t>& value) {
  const auto number = static_cast<std::uint32_t>(little_endian_number(value));
  switch (at.index) {
    case error_history_index:
      return unless(number == 0, SdoAbort::invalid_value);
    case sync_cob_id_index:
      return unless(is_sync_cob_id(number), SdoAbort::invalid_value);
    case store_index:
      return unless(number == save_signature, SdoAbort::cannot_store);
    case restore_index:
      return unless(number == load_signature, SdoAbort::cannot_store);
    case emergency_cob_id_index:
      return unless(is_emergency_cob_id(number_at(objects, at), number), SdoAbort::invalid_value);
    case consumer_heartbeat_index:
      return consumer_refusal(objects, at, number);
    case error_behaviour_index:
      return unless(number <= static_cast<std::uint32_t>(ErrorBehaviour::stopped),
                    SdoAbort::invalid_value);
    default:
      return std::nullopt;
  }
}

bool is_command_object(ObjectAddress at) {
  return at.sub_index == 1 && (at.index == store_index || at.index == restore_index);
}

bool is_empty_error(const ObjectDictionary& objects, ObjectAddress at) {
  return at.index == error_history_index && at.sub_index != 0 &&
         objects.find(at.index, at.sub_index) != nullptr &&
         at.sub_index > number_at(objects, {error_history_index, 0});
}

void keep_error(ObjectDictionary& objects, std::uint32_t error) {
  const std::uint32_t kept = number_at(objects, {error_history_index, 0});
  const std::uint32_t now = std::min<std::uint32_t>(kept + 1, most_errors);
  for (auto sub_index = static_cast<std::uint8_t>(now); sub_index > 1; --sub_index) {
    const auto newer = static_cast<std::uint8_t>(sub_index - 1);
    store_number(objects, {error_history_index, sub_index},
                 number_at(objects, {error_history_index, newer}));
  }
  store_number(objects, {error_history_index, 1}, error);
  store_number(objects, {error_history_index, 0}, now);
}

std::vector<HeartbeatConsumer> consumers_of(const ObjectDictionary& objects) {
  std::vector<HeartbeatConsumer> consumers;
  for (std::uint8_t sub_index = 1; sub_index <= most_consumers; ++sub_index) {
    const HeartbeatConsumer consumer =
        consumer_of(number_at(objects, {consumer_heartbeat_index, sub_index}));
    if (is_watched(consumer)) {
      consumers.push_back(consumer);
    }
  }
  return consumers;
}

}  // namespace velmora_can_bridge

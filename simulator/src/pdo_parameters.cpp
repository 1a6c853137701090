#include "pdo_parameters.hpp"

#include <algorithm>
#include <cstddef>

#include "ground/little_endian.hpp"
#include "node_parameters.hpp"
#include "object_numbers.hpp"
#include "pdo_mapping.hpp"

namespace velmora_can_bridge {
namespace {

// Where the parameters of number 1 stand; those of the next number follow.
struct ParameterIndices {
  PdoDirection direction;
  std::uint16_t communication;
  std::uint16_t mapping;
};

constexpr ParameterIndices parameter_indices[] = {{PdoDirection::rpdo, 0x1400, 0x1600},
                                                  {PdoDirection::tpdo, 0x1800, 0x1A00}};
constexpr unsigned highest_number = 255;

constexpr auto read_write = ObjectAccess::read_write;

constexpr std::uint8_t count_sub_index = 0;
constexpr std::uint8_t cob_id_sub_index = 1;
constexpr std::uint8_t transmission_sub_index = 2;
constexpr std::uint8_t inhibit_time_sub_index = 3;
constexpr std::uint8_t event_timer_sub_index = 5;

// As many mappings as a frame has bits.
constexpr std::uint8_t most_mappings = 64;
constexpr unsigned bits_of_frame = 64;

// Of the COB-ID: whether the PDO is disabled, and bit 30, no remote frames, which means nothing
// here.
constexpr std::uint32_t flag_bits = cob_id_disabled | 0x40000000;

constexpr std::uint8_t event_driven = 255;
constexpr std::uint8_t event_driven_by_maker = 254;
constexpr std::uint8_t highest_synchronous = 240;

/// Where a parameter belongs.
struct ParameterPlace {
  const ParameterIndices* indices;
  std::uint8_t number;
  bool is_mapping;
};

std::optional<ParameterPlace> place_of(std::uint16_t index) {
  for (const ParameterIndices& indices : parameter_indices) {
    for (const bool is_mapping : {false, true}) {
      const unsigned first = is_mapping ? indices.mapping : indices.communication;
      if (index >= first && index < first + highest_number) {
        return ParameterPlace{&indices, static_cast<std::uint8_t>(index - first + 1), is_mapping};
      }
    }
  }
  return std::nullopt;
}

std::uint16_t index_of(std::uint16_t first, std::uint8_t number) {
  return static_cast<std::uint16_t>(first + number - 1);
}

void add_communication(ObjectDictionary& objects, std::uint16_t index, std::uint16_t cob_id,
                       const PdoConfig& pdo) {
  const std::uint8_t highest = is_tpdo(pdo) ? event_timer_sub_index : transmission_sub_index;
  add_number(objects, {index, count_sub_index}, highest, 1, ObjectAccess::read_only);
  add_number(objects, {index, cob_id_sub_index}, cob_id == 0 ? cob_id_disabled : cob_id, 4,
             read_write);
  add_number(objects, {index, transmission_sub_index}, pdo.transmission.value_or(event_driven), 1,
             read_write);
  if (is_tpdo(pdo)) {
    add_number(objects, {index, inhibit_time_sub_index}, 0, 2, read_write);
    add_number(objects, {index, event_timer_sub_index}, 0, 2, read_write);
  }
}

/// Mappings beyond the most can only be such without bits.
void add_mappings(ObjectDictionary& objects, std::uint16_t index,
                  const std::vector<PdoMapping>& mappings) {
  const std::size_t count = std::min<std::size_t>(mappings.size(), most_mappings);
  add_number(objects, {index, count_sub_index}, static_cast<std::uint32_t>(count), 1, read_write);
  for (std::uint8_t position = 0; position < most_mappings; ++position) {
    const PdoMapping mapping = position < count ? mappings[position] : PdoMapping{};
    const std::uint32_t entry = std::uint32_t{mapping.index} << 16U |
                                std::uint32_t{mapping.sub_index} << 8U | mapping.bit_length;
    add_number(objects, {index, static_cast<std::uint8_t>(position + 1)}, entry, 4, read_write);
  }
}

PdoMapping mapping_of(std::uint32_t entry) {
  return {static_cast<std::uint16_t>(entry >> 16U),
          static_cast<std::uint8_t>(entry >> 8U),
          static_cast<std::uint8_t>(entry),
          {}};
}

PdoParameters parameters_of(const ObjectDictionary& objects, const ParameterIndices& indices,
                            std::uint8_t number) {
  const std::uint16_t communication = index_of(indices.communication, number);
  const std::uint16_t mapping = index_of(indices.mapping, number);
  PdoParameters parameters;
  const std::uint32_t cob_id = number_at(objects, {communication, cob_id_sub_index});
  if ((cob_id & cob_id_disabled) == 0) {
    parameters.cob_id = static_cast<std::uint16_t>(cob_id & highest_can_id);
  }
  parameters.transmission =
      static_cast<std::uint8_t>(number_at(objects, {communication, transmission_sub_index}));
  constexpr std::uint32_t inhibit_units_in_ms = 10;
  parameters.inhibit_time = std::chrono::milliseconds(
      (number_at(objects, {communication, inhibit_time_sub_index}) + inhibit_units_in_ms - 1) /
      inhibit_units_in_ms);
  parameters.event_timer =
      std::chrono::milliseconds(number_at(objects, {communication, event_timer_sub_index}));
  const std::uint32_t count =
      std::min<std::uint32_t>(number_at(objects, {mapping, count_sub_index}), most_mappings);
  for (std::uint32_t position = 1; position <= count; ++position) {
    parameters.mappings.push_back(
        mapping_of(number_at(objects, {mapping, static_cast<std::uint8_t>(position)})));
  }
  return parameters;
}

std::optional<SdoAbort> refused_if(bool is_refused, SdoAbort abort) {
  return is_refused ? std::make_optional(abort) : std::nullopt;
}

std::optional<SdoAbort> cob_id_refusal(std::uint32_t before, std::uint32_t now,
                                       std::uint32_t mapped) {
  const std::uint32_t id = now & ~flag_bits;
  const bool enables = (now & cob_id_disabled) == 0;
  const bool changes = (before & cob_id_disabled) == 0 && enables && (before & ~flag_bits) != id;
  const bool cannot_be_enabled =
      enables && (before & cob_id_disabled) != 0 && (is_restricted_cob_id(id) || mapped == 0);
  return refused_if(id > highest_can_id || changes || cannot_be_enabled, SdoAbort::invalid_value);
}

std::optional<SdoAbort> transmission_refusal(std::uint32_t type) {
  return refused_if(type > highest_synchronous && type < event_driven_by_maker,
                    SdoAbort::invalid_value);
}

/// Of what only device profile and maker define, and of the error register.
bool is_mappable_index(std::uint16_t index) {
  constexpr std::uint16_t error_register = 0x1001;
  constexpr std::uint16_t first_of_maker = 0x2000;
  return index == error_register || index >= first_of_maker;
}

std::optional<SdoAbort> entry_refusal(const ObjectDictionary& objects, PdoDirection direction,
                                      const PdoMapping& mapping) {
  if (is_dummy_entry(mapping)) {
    const bool is_mappable = direction == PdoDirection::rpdo && mapping.bit_length > 0;
    return is_mappable ? refused_if(mapping.bit_length > bits_of_frame, SdoAbort::pdo_too_long)
                       : SdoAbort::not_mappable;
  }
  const ObjectEntry* const entry = objects.find(mapping.index, mapping.sub_index);
  if (entry == nullptr) {
    return objects.upload(mapping.index, mapping.sub_index).error();
  }
  const ObjectAccess unfit =
      direction == PdoDirection::rpdo ? ObjectAccess::read_only : ObjectAccess::write_only;
  constexpr std::size_t bits_of_byte = 8;
  const bool is_mappable = is_mappable_index(mapping.index) && entry->access != unfit &&
                           !entry->variable_length && mapping.bit_length > 0 &&
                           mapping.bit_length <= entry->value.size() * bits_of_byte;
  return refused_if(!is_mappable, SdoAbort::not_mappable);
}

/// Whether the first `count` entries can be mapped together.
std::optional<SdoAbort> count_refusal(const ObjectDictionary& objects, PdoDirection direction,
                                      std::uint16_t index, std::uint32_t count) {
  if (count > most_mappings) {
    return SdoAbort::pdo_too_long;
  }
  unsigned bits = 0;
  for (std::uint32_t position = 1; position <= count; ++position) {
    const PdoMapping mapping =
        mapping_of(number_at(objects, {index, static_cast<std::uint8_t>(position)}));
    if (const auto refusal = entry_refusal(objects, direction, mapping)) {
      return refusal;
    }
    bits += mapping.bit_length;
  }
  return refused_if(bits > bits_of_frame, SdoAbort::pdo_too_long);
}

std::optional<SdoAbort> communication_refusal(std::uint8_t sub_index, std::uint32_t before,
                                              std::uint32_t now, std::uint32_t mapped,
                                              bool is_enabled) {
  switch (sub_index) {
    case cob_id_sub_index:
      return cob_id_refusal(before, now, mapped);
    case transmission_sub_index:
      return transmission_refusal(now);
    case inhibit_time_sub_index:
      return refused_if(is_enabled && before != now, SdoAbort::invalid_value);
    default:
      return std::nullopt;
  }
}

std::optional<SdoAbort> mapping_refusal(const ObjectDictionary& objects, PdoDirection direction,
                                        ObjectAddress at, std::uint32_t now, bool is_changeable) {
  if (!is_changeable) {
    return SdoAbort::unsupported_access;
  }
  if (at.sub_index == count_sub_index) {
    return count_refusal(objects, direction, at.index, now);
  }
  return now == 0 ? std::nullopt : entry_refusal(objects, direction, mapping_of(now));
}

}  // namespace

void add_pdo_parameters(ObjectDictionary& objects, std::uint8_t node_id, const BoardConfig& board) {
  for (const ParameterIndices& indices : parameter_indices) {
    const bool is_received = indices.direction == PdoDirection::rpdo;
    for (const auto& [number, pdo] : is_received ? rpdos_of(board) : tpdos_of(board)) {
      if (number == 0) {
        continue;
      }
      add_communication(objects, index_of(indices.communication, number), cob_id_of(node_id, *pdo),
                        *pdo);
      add_mappings(objects, index_of(indices.mapping, number), pdo->mappings);
    }
  }
}

std::optional<PdoName> pdo_with_parameters_at(std::uint16_t index) {
  const std::optional<ParameterPlace> place = place_of(index);
  return place ? std::make_optional(PdoName{place->indices->direction, place->number})
               : std::nullopt;
}

std::optional<SdoAbort> pdo_parameter_refusal(const ObjectDictionary& objects, ObjectAddress at,
                                              const std::vector<std::uint8_t>& value) {
  const std::optional<ParameterPlace> place = place_of(at.index);
  if (!place) {
    return std::nullopt;
  }
  const ParameterIndices& indices = *place->indices;
  const std::uint16_t communication = index_of(indices.communication, place->number);
  const std::uint16_t mapping = index_of(indices.mapping, place->number);
  const bool is_enabled =
      (number_at(objects, {communication, cob_id_sub_index}) & cob_id_disabled) == 0;
  const std::uint32_t mapped = number_at(objects, {mapping, count_sub_index});
  const auto now = static_cast<std::uint32_t>(little_endian_number(value));
  if (place->is_mapping) {
    const bool is_changeable = !is_enabled && (at.sub_index == count_sub_index || mapped == 0);
    return mapping_refusal(objects, indices.direction, at, now, is_changeable);
  }
  return communication_refusal(at.sub_index, number_at(objects, at), now, mapped, is_enabled);
}

NodePdos::NodePdos(const ObjectDictionary& objects) {
  for (const ObjectAddress& at : objects.addresses()) {
    const std::optional<ParameterPlace> place = place_of(at.index);
    if (place && at.sub_index == count_sub_index) {
      of(place->indices->direction).try_emplace(place->number);
    }
  }
  refresh(objects);
}

void NodePdos::refresh(const ObjectDictionary& objects) {
  for (const ParameterIndices& indices : parameter_indices) {
    for (auto& [number, parameters] : of(indices.direction)) {
      parameters = parameters_of(objects, indices, number);
    }
  }
}

void NodePdos::refresh(const ObjectDictionary& objects, std::uint16_t index) {
  const std::optional<ParameterPlace> place = place_of(index);
  if (!place) {
    return;
  }
  const auto found = of(place->indices->direction).find(place->number);
  if (found != of(place->indices->direction).end()) {
    found->second = parameters_of(objects, *place->indices, place->number);
  }
}

const PdoParameters* NodePdos::find(PdoDirection direction, std::uint8_t number) const {
  const std::map<std::uint8_t, PdoParameters>& pdos = all(direction);
  const auto found = pdos.find(number);
  return found == pdos.end() ? nullptr : &found->second;
}

const std::map<std::uint8_t, PdoParameters>& NodePdos::all(PdoDirection direction) const {
  return direction == PdoDirection::rpdo ? rpdos_ : tpdos_;
}

std::map<std::uint8_t, PdoParameters>& NodePdos::of(PdoDirection direction) {
  return direction == PdoDirection::rpdo ? rpdos_ : tpdos_;
}

}  // namespace velmora_can_bridge

// Operations through the image of an RPDO.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ground/data_types.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "operation_check.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

constexpr unsigned bits_of_byte = 8;

/// One field that an operation writes, and where the operation names it.
struct FieldUse {
  std::string_view key;
  Position at;
  const PdoMapping* mapping = nullptr;

  std::string name() const {
    return mapping->field.empty() ? object_text(mapping->index, mapping->sub_index)
                                  : quoted(mapping->field);
  }
};

void report(const OperationCheck& check, const FieldUse& use, const std::string& message) {
  check.problems.error(use.at, std::string(use.key) + ": " + message);
}

/// Operations count whole bytes only, so behind a field of a broken number of them they write other
/// bits than those of the field.
bool is_displaced(const PdoConfig& rpdo, const PdoMapping& wanted) {
  std::size_t bits = 0;
  std::size_t bytes = 0;
  for (const PdoMapping& mapping : rpdo.mappings) {
    if (&mapping == &wanted) {
      break;
    }
    bits += mapping.bit_length;
    bytes += byte_length(mapping);
  }
  return bits != bytes * bits_of_byte;
}

/// Whether the operation reaches the value of the field. Else reports it.
bool check_use(const OperationCheck& check, const PdoConfig& rpdo, const FieldUse& use) {
  if (is_dummy_entry(*use.mapping)) {
    report(check, use, use.name() + " is a dummy entry, which carries no value");
    return false;
  }
  if (is_short_field(*use.mapping)) {
    report(check, use,
           use.name() + " has " + counted(use.mapping->bit_length, "bit") +
               ", operations write whole bytes; write its object by SDO");
    return false;
  }
  if (!check.goes_by_sdo() && is_displaced(rpdo, *use.mapping)) {
    report(check, use,
           use.name() + " does not begin at a whole byte of the frame, where operations write");
    return false;
  }
  return true;
}

/// Reports an RPDO that no bus can send: the predefined identifiers end with number 4.
void check_cob_id(const OperationCheck& check, const PdoConfig& rpdo) {
  constexpr std::uint8_t last_predefined = 4;
  if (rpdo.number <= last_predefined || rpdo.cob_id != 0) {
    return;
  }
  const auto position = static_cast<std::size_t>(&rpdo - check.facts.node.board.pdos.data());
  const YamlValue& source = *elements_at(check.facts.source, "pdos")[position];
  check.problems.error(member_or_record(source, "number").at,
                       "number: operations send RPDO " + std::to_string(rpdo.number) +
                           ", but the predefined COB-IDs end with RPDO 4; write its cob_id");
}

/// Whether the operation goes on when an object of the RPDO cannot be read.
bool tolerates_refusals(const OperationCheck& check) {
  const bool is_patch_of_leds = check.op.kind == "led_write" && check.op.led_operation != "set_led";
  const OperationKind* const kind = find_operation_kind(check.op.kind);
  const bool reads_flag = kind != nullptr && kind->members.contains("refresh_shadow");
  return is_patch_of_leds || (reads_flag && check.op.refresh_shadow != 0);
}

/// Reports an RPDO whose image cannot be loaded, as one of its objects can only be written.
void check_loadable(const OperationCheck& check, const PdoConfig& rpdo) {
  if (tolerates_refusals(check)) {
    return;
  }
  for (const PdoMapping& mapping : rpdo.mappings) {
    const auto object = profile_object(check.facts, mapping.index, mapping.sub_index);
    if (object && !object->is_readable) {
      check.problems.error(check.source.at,
                           "operation: reads what " + pdo_text(rpdo) + " maps first, but " +
                               object_text(mapping.index, mapping.sub_index) + " is " +
                               object->name + ", which can only be written; use transport: sdo");
    }
  }
}

/// Whether the RPDO can be sent where the operation does not go by SDO. Else reports it.
void check_sendable(const OperationCheck& check, const PdoConfig& rpdo) {
  if (!check.goes_by_sdo()) {
    check_cob_id(check, rpdo);
    check_loadable(check, rpdo);
  }
}

/// The RPDO that the operation writes; null when there is none, which is then reported, or when
/// nothing is certain.
const PdoConfig* written_rpdo(const OperationCheck& check) {
  const BoardConfig& board = check.facts.node.board;
  if (!check.facts.knows_pdos) {
    return nullptr;
  }
  if (check.op.pdo_number != 0) {
    return find_pdo(board, PdoDirection::rpdo, check.op.pdo_number);
  }
  const std::uint8_t number = find_rpdo_number(board, check.op.index);
  if (number != 0) {
    return find_pdo(board, PdoDirection::rpdo, number);
  }
  if (check.has("index")) {
    check.error("index", "no RPDO of this node maps " + hex<4>(check.op.index) +
                             ", write the pdo_number of the one to write");
  } else {
    check.problems.error(check.source.at, "operation: " + check.op.kind +
                                              " does not say which RPDO it writes, write its "
                                              "pdo_number");
  }
  return nullptr;
}

/// The use of a field of that name; no value when the RPDO does not map it. That is reported here
/// when the RPDO was found by the index, and with the names otherwise.
std::optional<FieldUse> named_use(const OperationCheck& check, const PdoConfig& rpdo,
                                  std::string_view key, const std::string& name, Position at) {
  const PdoMapping* const mapping = find_field(rpdo, name);
  if (mapping != nullptr) {
    return FieldUse{key, at, mapping};
  }
  if (check.op.pdo_number == 0) {
    check.problems.error(at, std::string(key) + ": RPDO " + std::to_string(rpdo.number) +
                                 ", which maps " + hex<4>(check.op.index) + ", maps no field " +
                                 quoted(name) + "; write the pdo_number of the one that does");
  }
  return std::nullopt;
}

/// The uses of the list `fields`; no value when one of them was reported.
std::optional<std::vector<FieldUse>> listed_uses(const OperationCheck& check,
                                                 const PdoConfig& rpdo) {
  check.warn_of_unread("field", "as fields is there");
  const std::vector<const YamlValue*>& names = elements_at(check.source, "fields");
  std::vector<FieldUse> uses;
  for (std::size_t position = 0; position < names.size(); ++position) {
    const auto use =
        named_use(check, rpdo, "fields", check.op.fields[position], names[position]->at);
    if (use && check_use(check, rpdo, *use)) {
      uses.push_back(*use);
    }
  }
  return uses.size() == names.size() ? std::make_optional(uses) : std::nullopt;
}

/// "at sub-index 1, 2 or 3"; empty when the RPDO does not map the index.
std::string mapped_places(const PdoConfig& rpdo, std::uint16_t index) {
  std::vector<std::string> places;
  for (const PdoMapping& mapping : rpdo.mappings) {
    if (mapping.index == index) {
      places.push_back(std::to_string(mapping.sub_index));
    }
  }
  return places.empty() ? ""
                        : "; it maps " + hex<4>(index) + " at sub-index " + enumeration(places);
}

/// The use of the object that the operation names; no value when it was reported.
std::optional<FieldUse> object_use(const OperationCheck& check, const PdoConfig& rpdo) {
  const PdoMapping* const mapping =
      find_mapping_by_object(rpdo, check.op.index, check.op.sub_index);
  const std::string_view key = check.has("sub_index") ? "sub_index" : "index";
  if (mapping != nullptr) {
    return FieldUse{key, check.at(key), mapping};
  }
  if (!check.has("index")) {
    check.problems.error(check.source.at, "operation: " + check.op.kind +
                                              " does not say what it writes, write fields");
  } else {
    check.error(key, pdo_text(rpdo) + " maps no object " +
                         object_text(check.op.index, check.op.sub_index) +
                         mapped_places(rpdo, check.op.index));
  }
  return std::nullopt;
}

/// The field of an operation that has no list of them; no value when it was reported.
std::optional<FieldUse> single_use(const OperationCheck& check, const PdoConfig& rpdo) {
  const auto use = check.op.field.empty()
                       ? object_use(check, rpdo)
                       : named_use(check, rpdo, "field", check.op.field, check.at("field"));
  return use && check_use(check, rpdo, *use) ? use : std::nullopt;
}

std::size_t total_length(const std::vector<FieldUse>& uses) {
  std::size_t length = 0;
  for (const FieldUse& use : uses) {
    length += byte_length(*use.mapping);
  }
  return length;
}

std::string type_advice(std::size_t length) {
  const bool has_type = length == 1 || length == 2 || length == 4;
  return has_type ? ", write a type of that length" : ", leave data_type out";
}

void check_type_length(const OperationCheck& check, std::size_t length, const std::string& what) {
  const auto sized = sized_type_length(check.op.data_type);
  if (sized && *sized != length) {
    check.error("data_type", check.op.data_type + " has " + counted(*sized, "byte") + ", but " +
                                 what + " " + std::to_string(length) + type_advice(length));
  }
}

/// An LED command has its own payload: where fields have to end for it to be cut as it is meant.
struct LedPayload {
  std::string_view operation;
  std::size_t length;
  /// Where its mode stands, a byte of 0 to 3; `length` where it has none.
  std::size_t mode_position;
  /// The last field has to end with it.
  bool is_whole;
};

constexpr LedPayload led_payloads[] = {
    {"set_led", 6, 3, true}, {"set_color", 3, 3, false}, {"set_mode", 3, 0, false}};

bool ends_at(const std::vector<FieldUse>& uses, std::size_t wanted) {
  std::size_t end = 0;
  for (const FieldUse& use : uses) {
    end += byte_length(*use.mapping);
    if (end == wanted) {
      return true;
    }
  }
  return false;
}

/// Reports a field of the mode whose range has no mode in it.
void check_led_mode(const OperationCheck& check, const LedPayload& payload,
                    const std::vector<FieldUse>& uses) {
  constexpr std::int64_t highest_mode = 3;
  std::size_t position = 0;
  for (const FieldUse& use : uses) {
    const bool is_mode = position == payload.mode_position && position < payload.length &&
                         byte_length(*use.mapping) == 1;
    const auto described =
        check.facts.node.values.find({use.mapping->index, use.mapping->sub_index});
    if (is_mode && described != check.facts.node.values.end() && described->second.minimum &&
        Count::of(highest_mode) < *described->second.minimum) {
      report(check, use,
             use.name() + " is the mode, 0 to 3, but its minimum is " +
                 count_text(*described->second.minimum));
    }
    position += byte_length(*use.mapping);
  }
}

void check_led_payload(const OperationCheck& check, const std::vector<FieldUse>& uses) {
  for (const LedPayload& payload : led_payloads) {
    if (payload.operation != check.op.led_operation) {
      continue;
    }
    check_led_mode(check, payload, uses);
    const bool fits =
        payload.is_whole ? total_length(uses) == payload.length : ends_at(uses, payload.length);
    if (!fits) {
      check.error("fields",
                  check.op.led_operation + " writes " + std::to_string(payload.length) +
                      " bytes, but " +
                      (payload.is_whole ? "the fields have " + std::to_string(total_length(uses))
                                        : "no field of the list ends there"));
    }
  }
}

void check_led_objects(const OperationCheck& check, const std::vector<FieldUse>& uses) {
  for (const FieldUse& use : uses) {
    const auto object = profile_object(check.facts, use.mapping->index, use.mapping->sub_index);
    if (object) {
      report(check, use, use.name() + " is " + object->name + ", no LED");
    }
  }
}

void check_auto_write_by_sdo(const OperationCheck& check) {
  const std::string reason =
      check.goes_by_sdo() ? std::string("as transport is sdo")
                          : "as no RPDO maps " + hex<4>(check.op.index) + " and it goes by SDO";
  for (const std::string_view key : {"field", "fields", "pdo_number", "refresh_shadow"}) {
    check.warn_of_unread(key, reason);
  }
  check_written_object(check);
  check_data_type(check);
}

void check_named_object(const OperationCheck& check, const PdoMapping& mapping) {
  const std::string object = object_text(mapping.index, mapping.sub_index);
  if (mapping.index != check.op.index) {
    check.error("field", quoted(mapping.field) + " carries " + object + ", but index is " +
                             hex<4>(check.op.index));
  } else if (check.has("sub_index") && mapping.sub_index != check.op.sub_index) {
    check.warning("sub_index", "the field carries " + object);
  }
}

/// Reports a field whose bits cannot be changed, as it has more than a byte.
void check_single_byte(const OperationCheck& check, const PdoConfig& rpdo, const FieldUse& use) {
  if (check_use(check, rpdo, use) && byte_length(*use.mapping) != 1) {
    report(check, use,
           use.name() + " has " + counted(use.mapping->bit_length, "bit") + ", " + check.op.kind +
               " changes bits of fields of 8");
  }
}

void check_rpdo_channels(const OperationCheck& check) {
  if (!check.facts.knows_pdos || check.op.rpdo_channels.empty()) {
    return;
  }
  if (check.op.pump_pdo_number == 0) {
    check.error("rpdo_channels", "write the pump_pdo_number of the RPDO that carries them");
    return;
  }
  const PdoConfig* const rpdo =
      find_pdo(check.facts.node.board, PdoDirection::rpdo, check.op.pump_pdo_number);
  if (rpdo == nullptr) {
    return;
  }
  constexpr std::size_t duty_length = 2;
  const std::vector<const YamlValue*>& elements = elements_at(check.source, "rpdo_channels");
  for (std::size_t position = 0; position < elements.size(); ++position) {
    const std::uint8_t channel = check.op.rpdo_channels[position];
    FieldUse use{"rpdo_channels", elements[position]->at,
                 find_mapping_by_object(*rpdo, check.op.index, channel)};
    if (use.mapping == nullptr) {
      report(check, use,
             pdo_text(*rpdo) + " maps no object " + object_text(check.op.index, channel) +
                 "; channels by SDO are sdo_channels");
    } else if (check_use(check, *rpdo, use) && byte_length(*use.mapping) != duty_length) {
      report(check, use,
             use.name() + " has " + counted(use.mapping->bit_length, "bit") + ", a duty has 16");
    }
  }
  check_sendable(check, *rpdo);
}

void check_sdo_channels(const OperationCheck& check) {
  constexpr std::size_t duty_length = 2;
  const std::vector<const YamlValue*>& elements = elements_at(check.source, "sdo_channels");
  std::set<std::uint8_t> seen;
  for (std::size_t position = 0; position < elements.size(); ++position) {
    const std::uint8_t channel = check.op.sdo_channels[position];
    const auto known = seen.insert(channel).second
                           ? known_length(check.facts, check.op.index, channel)
                           : std::nullopt;
    if (known && known->length != duty_length) {
      check.problems.error(elements[position]->at,
                           "sdo_channels: " + object_text(check.op.index, channel) + " " +
                               known->reason + " with " + counted(known->length, "byte") +
                               ", a duty has 2");
    }
  }
}

/// Reports what the list has a second time, or `others` before it.
void check_repeated_channels(const OperationCheck& check, std::string_view key,
                             const std::vector<std::uint8_t>& channels,
                             std::vector<std::uint8_t> seen) {
  const std::vector<const YamlValue*>& elements = elements_at(check.source, key);
  for (std::size_t position = 0; position < elements.size(); ++position) {
    const std::uint8_t channel = channels[position];
    if (std::find(seen.begin(), seen.end(), channel) != seen.end()) {
      check.problems.warning(
          elements[position]->at,
          std::string(key) + ": channel " + std::to_string(channel) + " is listed already");
    } else {
      seen.push_back(channel);
    }
  }
}

}  // namespace

void check_pdo_write(const OperationCheck& check) {
  const PdoConfig* const rpdo = written_rpdo(check);
  if (rpdo == nullptr) {
    return;
  }
  if (check.op.fields.empty()) {
    single_use(check, *rpdo);
  } else {
    listed_uses(check, *rpdo);
  }
  if (check.goes_by_sdo()) {
    check.warn_of_unread("refresh_shadow", "as transport is sdo");
  }
  check_sendable(check, *rpdo);
}

void check_led_write(const OperationCheck& check) {
  if (check.op.fields.empty()) {
    check.error("fields", "led_write has no field to write");
    return;
  }
  const PdoConfig* const rpdo = written_rpdo(check);
  if (rpdo == nullptr) {
    return;
  }
  if (const auto uses = listed_uses(check, *rpdo)) {
    check_led_payload(check, *uses);
    check_led_objects(check, *uses);
  }
  check_sendable(check, *rpdo);
}

void check_auto_write(const OperationCheck& check) {
  if (!check.facts.knows_pdos) {
    return;
  }
  const bool is_mapped =
      check.op.pdo_number != 0 || find_rpdo_number(check.facts.node.board, check.op.index) != 0;
  if (check.goes_by_sdo() || !is_mapped) {
    check_auto_write_by_sdo(check);
    return;
  }
  const PdoConfig* const rpdo = written_rpdo(check);
  if (rpdo == nullptr) {
    return;
  }
  check_sendable(check, *rpdo);
  if (!check.op.fields.empty()) {
    if (const auto uses = listed_uses(check, *rpdo)) {
      check_type_length(check, total_length(*uses), "the fields have");
    }
    return;
  }
  if (const auto use = single_use(check, *rpdo)) {
    check_type_length(check, byte_length(*use->mapping), use->name() + " has");
    check_data_sign(check, {use->mapping->index, use->mapping->sub_index});
    if (!check.op.field.empty()) {
      check_named_object(check, *use->mapping);
    }
  }
}

void check_bit_patch(const OperationCheck& check) {
  const PdoConfig* const rpdo = written_rpdo(check);
  if (rpdo == nullptr) {
    return;
  }
  check_sendable(check, *rpdo);
  if (check.op.fields.empty() && check.op.field.empty()) {
    check.problems.error(check.source.at,
                         "operation: bit_patch does not say what it writes, write its field");
    return;
  }
  const std::vector<const YamlValue*>& names = elements_at(check.source, "fields");
  if (names.size() > 1) {
    check.problems.warning(names[1]->at, "fields: bit_patch uses the first of them alone");
  }
  if (!names.empty()) {
    check.warn_of_unread("field", "as fields is there");
  }
  const auto use =
      names.empty() ? named_use(check, *rpdo, "field", check.op.field, check.at("field"))
                    : named_use(check, *rpdo, "fields", check.op.fields.front(), names.front()->at);
  if (use) {
    check_single_byte(check, *rpdo, *use);
  }
}

void check_pdo_bit_patch(const OperationCheck& check) {
  if (check.op.fields.empty()) {
    check.error("fields", "pdo_bit_patch has no field to write");
    return;
  }
  if (check.op.named == 0) {
    check.warn_of_unread("bit_index", "as named is not set and the payload has the bit");
  }
  const PdoConfig* const rpdo = written_rpdo(check);
  if (rpdo == nullptr) {
    return;
  }
  check_sendable(check, *rpdo);
  const std::vector<const YamlValue*>& names = elements_at(check.source, "fields");
  for (std::size_t position = 0; position < names.size(); ++position) {
    const auto use =
        named_use(check, *rpdo, "fields", check.op.fields[position], names[position]->at);
    if (use) {
      check_single_byte(check, *rpdo, *use);
    }
  }
  if (check.op.named != 0 && names.size() > 1) {
    check.problems.warning(names[1]->at, "fields: named uses the first of them alone");
  }
}

void check_pump_duty(const OperationCheck& check) {
  check_any_device(check);
  const auto drive = check.facts.device_objects.find({check.op.index, 0});
  if (drive != check.facts.device_objects.end()) {
    check.error("index", hex<4>(check.op.index) + " is " + drive->second.name + ", no pump");
    return;
  }
  check_sdo_channels(check);
  if (check.goes_by_sdo()) {
    check.warn_of_unread("rpdo_channels", "as transport is sdo and every channel goes by SDO");
    check.warn_of_unread("pump_pdo_number", "as transport is sdo");
    return;
  }
  if (check.op.rpdo_channels.empty() && check.op.sdo_channels.empty()) {
    check.problems.error(
        check.source.at,
        "operation: pump_duty has no channel, write rpdo_channels, sdo_channels or "
        "transport: sdo");
    return;
  }
  if (check.op.rpdo_channels.empty()) {
    check.warn_of_unread("pump_pdo_number", "as there are no rpdo_channels");
  }
  check_repeated_channels(check, "rpdo_channels", check.op.rpdo_channels, {});
  check_repeated_channels(check, "sdo_channels", check.op.sdo_channels, check.op.rpdo_channels);
  check_rpdo_channels(check);
}

}  // namespace velmora_can_bridge

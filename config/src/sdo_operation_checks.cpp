// Operations that read and write objects by SDO.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ground/data_types.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "operation_check.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Whether there is an object at that sub-index, for all that is known. Else reports it at `place`.
bool check_exists(const OperationCheck& check, std::string_view key, Position place,
                  std::uint8_t sub_index) {
  const auto lone = lone_object(check.facts, check.op.index, sub_index);
  if (lone) {
    check.problems.error(place, std::string(key) + ": " + hex<4>(check.op.index) + " is " +
                                    lone->name + ", which has sub-index 0 alone");
  }
  return !lone;
}

void check_read_object(const OperationCheck& check, std::string_view key, Position place,
                       std::uint8_t sub_index) {
  if (!check_exists(check, key, place, sub_index)) {
    return;
  }
  const auto object = profile_object(check.facts, check.op.index, sub_index);
  if (object && !object->is_readable) {
    check.problems.error(place, std::string(key) + ": " + object_text(check.op.index, sub_index) +
                                    " is " + object->name + ", which can only be written");
  }
}

void check_writable(const OperationCheck& check, std::uint8_t sub_index) {
  const auto object = profile_object(check.facts, check.op.index, sub_index);
  if (object && !object->is_writable) {
    check.error("index", object_text(check.op.index, sub_index) + " is " + object->name +
                             ", which can only be read; use sdo_read");
  }
}

/// The bytes that a write of the operation's object has to have, and what says so.
std::optional<KnownLength> wanted_length(const OperationCheck& check) {
  if (const auto sized = sized_type_length(check.op.data_type)) {
    return KnownLength{*sized, "data_type is " + check.op.data_type};
  }
  auto known = known_length(check.facts, check.op.index, check.op.sub_index);
  if (known) {
    known->reason = object_text(check.op.index, check.op.sub_index) + " " + known->reason;
  }
  return known;
}

/// The number that the bytes stand for, where the description tells.
std::optional<Count> count_of_bytes(const Bytes& data, const ValueDescription& value) {
  const bool is_number =
      value.type && is_integer(*value.type) && length_of(*value.type) == data.size();
  if (!is_number) {
    return std::nullopt;
  }
  const std::uint64_t bits = little_endian_number(data);
  const std::uint64_t sign = std::uint64_t{1} << (data.size() * 8 - 1);
  if (!is_signed(*value.type) || (bits & sign) == 0) {
    return Count::of_unsigned(bits);
  }
  // All bits above the number's own are set.
  return Count::of(static_cast<std::int64_t>(bits | ~(sign - 1)));
}

void check_data_range(const OperationCheck& check, std::string_view key, const Bytes& data) {
  const auto described = check.facts.node.values.find({check.op.index, check.op.sub_index});
  if (described == check.facts.node.values.end()) {
    return;
  }
  const ValueDescription& value = described->second;
  const std::optional<Count> count = count_of_bytes(data, value);
  if (count && value.minimum && *count < *value.minimum) {
    check.warning(key,
                  count_text(*count) + " is less than the minimum, " + count_text(*value.minimum));
  }
  if (count && value.maximum && *value.maximum < *count) {
    check.warning(key,
                  count_text(*count) + " is more than the maximum, " + count_text(*value.maximum));
  }
}

void check_data(const OperationCheck& check, std::string_view key, const Bytes& data) {
  if (data.empty()) {
    return;
  }
  const std::optional<KnownLength> wanted = wanted_length(check);
  if (wanted && wanted->length != data.size()) {
    check.error(key, counted(data.size(), "byte") + ", but " + wanted->reason + ", write " +
                         std::to_string(wanted->length));
    return;
  }
  check_data_range(check, key, data);
}

void check_payload_form(const OperationCheck& check) {
  for (const std::string_view key : {"sub_index", "fixed_data", "default_data", "data_type"}) {
    check.warn_of_unread(key, "as subindex_in_payload takes sub-index and data from the payload");
  }
  check_writable(check, 0);
}

}  // namespace

void check_written_object(const OperationCheck& check) {
  if (check_exists(check, "sub_index", check.at("sub_index"), check.op.sub_index)) {
    check_writable(check, check.op.sub_index);
  }
}

void check_data_type(const OperationCheck& check) {
  const auto sized = sized_type_length(check.op.data_type);
  const auto known = known_length(check.facts, check.op.index, check.op.sub_index);
  if (sized && known && *sized != known->length) {
    check.error("data_type", check.op.data_type + " has " + counted(*sized, "byte") + ", but " +
                                 object_text(check.op.index, check.op.sub_index) + " " +
                                 known->reason + ", write a type of " +
                                 std::to_string(known->length));
  }
  check_data_sign(check, {check.op.index, check.op.sub_index});
}

void check_data_sign(const OperationCheck& check, ValueAddress address) {
  const auto written = find_value_type(check.op.data_type);
  const auto described = check.facts.node.values.find(address);
  if (!written || described == check.facts.node.values.end() || !described->second.type) {
    return;
  }
  const ValueType type = *described->second.type;
  const bool has_other_sign = is_integer(type) && length_of(type) == length_of(*written) &&
                              is_signed(type) != is_signed(*written);
  if (has_other_sign) {
    check.warning("data_type",
                  check.op.data_type + ", but " + object_text(address.index, address.sub_index) +
                      " is described as " + std::string(value_type_text(type)) + ", which counts");
  }
}

void check_sdo_write(const OperationCheck& check) {
  if (check.op.subindex_in_payload != 0) {
    check_payload_form(check);
    return;
  }
  check_written_object(check);
  check_data_type(check);
  check_data(check, "fixed_data", check.op.fixed_data);
  check_data(check, "default_data", check.op.default_data);
  if (!check.op.fixed_data.empty()) {
    check.warn_of_unread("default_data", "as fixed_data is written whatever the payload holds");
  }
}

void check_sdo_read(const OperationCheck& check) {
  check_read_object(check, check.has("sub_index") ? "sub_index" : "index", check.at("sub_index"),
                    check.op.sub_index);
}

void check_read_multi(const OperationCheck& check) {
  const std::vector<const YamlValue*>& elements = elements_at(check.source, "sub_indices");
  if (elements.empty()) {
    check.warning("sub_indices", "names nothing to read, write the sub-indices of the object");
  }
  for (std::size_t position = 0; position < elements.size(); ++position) {
    check_read_object(check, "sub_indices", elements[position]->at, check.op.sub_indices[position]);
  }
}

}  // namespace velmora_can_bridge

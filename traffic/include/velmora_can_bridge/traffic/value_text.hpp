/// Values of objects and fields, for people and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/traffic/object_name.hpp"

namespace velmora_can_bridge {

/// The lowest `bit_length` bits, 1 to 64, as a number in two's complement.
std::int64_t with_sign(std::uint64_t bits, unsigned bit_length);

/// The lowest `bit_length` bits, 1 to 64, as a decimal number.
std::string number_text(std::uint64_t bits, unsigned bit_length, bool is_signed);

/// Whether so many bytes may be a number: 1, 2, 4 or 8.
bool is_number_size(std::size_t size);

/// "37 02 (567)", "56 43 42 31 30 ("VCB10")": the bytes, lowest first, and what they may mean.
std::string value_text(const std::vector<std::uint8_t>& bytes, bool is_signed);

/// As `number_text`, as a value of `Json`, which is one of the library nlohmann-json.
template <typename Json>
Json number_json(std::uint64_t bits, unsigned bit_length, bool is_signed) {
  return is_signed ? Json(with_sign(bits, bit_length)) : Json(bits);
}

/// Adds what names the object: `index` and `sub_index`, and `device`, `field` and `operations`
/// where it has them.
template <typename Json>
void add_object(Json& line, const ObjectName& object) {
  line["index"] = object.index;
  line["sub_index"] = object.sub_index;
  if (!object.device.empty()) {
    line["device"] = object.device;
  }
  if (!object.field.empty()) {
    line["field"] = object.field;
  }
  if (!object.operations.empty()) {
    line["operations"] = object.operations;
  }
}

}  // namespace velmora_can_bridge

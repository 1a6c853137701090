/// Values of objects in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/values/value_number.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What the value of an object says.
struct ValueReading {
  /// With the sign of the object. No value for texts and where no number has so many bytes.
  std::optional<ValueNumber> number{};
  /// What the number does not say by itself, or the text where it is one; often empty.
  std::string words{};
  /// `words` is the value itself: what a device, not this library, has written.
  bool is_text = false;
  /// The board file or a standard tells the type. Otherwise a number has no sign, and a text is a
  /// guess: bytes that all can be printed, and are no usual number.
  bool is_typed = false;
};

/// Reads the bytes of an object, the lowest first. Any number of bytes is taken.
///
/// What they mean is told, in this order, by the board file's name for the number ("breath"); by
/// what the object is: statusword and controlword of a drive, its error code, device type, error
/// register, list of errors, mode of operation, states of a claw; by the board file's unit and
/// scale ("0.3 m/s"). `node` may be null: then only the objects that all nodes have are known.
ValueReading read_value(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        const std::vector<std::uint8_t>& bytes);

/// As above, of a mapped field: its `bit_length` bits, 1 to 64.
ValueReading read_field(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        std::uint64_t bits, unsigned bit_length);

/// The `words` of `read_value`.
std::string value_words(const NodeConfig* node, std::uint16_t index, std::uint8_t sub_index,
                        const std::vector<std::uint8_t>& bytes);

/// "1591, Operation enabled, target reached", "300 mm/s", "-77", "\"Motor box\"": number and words
/// on one line. Texts of devices and files stand as they are: who prints them to a terminal escapes
/// what a terminal obeys.
std::string reading_text(const ValueReading& reading);

/// As `reading_text`, for the middle of a line: "1591 (Operation enabled, target reached)".
std::string bracketed_reading_text(const ValueReading& reading);

/// The bytes, lowest first, and what they say: "37 02 (567, Operation enabled)", "56 43 42".
std::string value_text(const std::vector<std::uint8_t>& bytes, const ValueReading& reading);

/// Adds `value` and `words` to the JSON object `line`, each where the reading has it. `Json` is one
/// of the library nlohmann-json.
template <typename Json>
void add_reading(Json& line, const ValueReading& reading) {
  if (reading.number) {
    line["value"] = number_json<Json>(*reading.number);
  }
  if (!reading.words.empty()) {
    line["words"] = reading.words;
  }
}

}  // namespace velmora_can_bridge

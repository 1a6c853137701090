/// The objects of a node, and how they answer SDO requests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What the bus may do with an object.
enum class ObjectAccess : std::uint8_t { read_only, write_only, read_write };

/// One object: what it holds and what it takes.
struct ObjectEntry {
  ObjectAccess access = ObjectAccess::read_write;
  /// The current bytes in bus order (little-endian values). Their number is the object's size,
  /// unless `variable_length`.
  std::vector<std::uint8_t> value{};
  /// For strings and domains: takes any number of bytes up to `maximum_length`, none included.
  bool variable_length = false;
  /// In bytes; read only when `variable_length`. The value given above may already be longer.
  std::size_t maximum_length = 255;
};

/// Where an object stands.
struct ObjectAddress {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
};

/// The outcome of an upload: the object's bytes, or why there are none.
using UploadResult = Expected<std::vector<std::uint8_t>, SdoAbort>;

/// Objects by index and sub-index. Not thread-safe; `SimulatedNode` locks around it.
///
/// Requests from the bus are checked in this order, the first mismatch answers: the index
/// (`no_such_object`), the sub-index (`no_such_sub_index`), the access (`read_of_write_only`,
/// `write_of_read_only`), the length (`value_too_long`, `value_too_short`). A refused request
/// changes nothing.
class ObjectDictionary {
 public:
  /// Adds an object; replaces the one that stands there. Other sub-indices stay as they are,
  /// sub-index 0 with the highest sub-index included.
  void add(std::uint16_t index, std::uint8_t sub_index, ObjectEntry entry);

  /// Answers an SDO upload.
  UploadResult upload(std::uint16_t index, std::uint8_t sub_index) const;

  /// As above, but puts the bytes into `data` in place of what it holds; its memory is used again.
  /// A refusal leaves it as it was. No value when the object was read.
  std::optional<SdoAbort> upload(std::uint16_t index, std::uint8_t sub_index,
                                 std::vector<std::uint8_t>& data) const;

  /// Answers an SDO download of `data`: no value when the object took it.
  std::optional<SdoAbort> download(std::uint16_t index, std::uint8_t sub_index,
                                   const std::vector<std::uint8_t>& data);

  /// Why a download of `size` bytes would be refused; no value when the object takes them.
  std::optional<SdoAbort> download_refusal(std::uint16_t index, std::uint8_t sub_index,
                                           std::size_t size) const;

  /// Writes from the device's own side, whatever the access. A held object takes it without a
  /// change.
  ///
  /// False, and nothing changed, when there is no such object or it does not take that length.
  bool store(std::uint16_t index, std::uint8_t sub_index, const std::vector<std::uint8_t>& value);

  /// From now on the object keeps its value: a fault, as of a sensor that is stuck. Downloads and
  /// stores are judged as ever and change nothing; `add` changes it still. Nothing happens when
  /// there is no such object.
  void hold(ObjectAddress at);

  /// Ends that.
  void release(ObjectAddress at);

  bool is_held(ObjectAddress at) const;

  /// The object, whatever the access; null when there is none. Valid until the object is replaced.
  const ObjectEntry* find(std::uint16_t index, std::uint8_t sub_index) const;

  /// Where objects stand, ordered by index, then by sub-index.
  std::vector<ObjectAddress> addresses() const;

 private:
  /// Why there is no such object.
  SdoAbort absence(std::uint16_t index) const;

  std::map<std::uint16_t, std::map<std::uint8_t, ObjectEntry>> objects_;
  std::set<std::pair<std::uint16_t, std::uint8_t>> held_;
};

}  // namespace velmora_can_bridge

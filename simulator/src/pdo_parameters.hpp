// The parameters of a node's PDOs, as its objects hold them, and what may be written to them (CiA
// 301, 7.5.2.35 to 7.5.2.38).
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "ground/pdo.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bus/sdo_abort.hpp"
#include "velmora_can_bridge/simulator/object_dictionary.hpp"

namespace velmora_can_bridge {

/// What a PDO does.
struct PdoParameters {
  /// No value: the PDO is disabled, bit 31 of its COB-ID is set.
  std::optional<std::uint16_t> cob_id;
  std::uint8_t transmission = 255;
  /// Of TPDOs alone. The least time between two frames, rounded up to milliseconds.
  std::chrono::milliseconds inhibit_time{0};
  /// Of TPDOs alone. The longest time between two frames; 0 for none.
  std::chrono::milliseconds event_timer{0};
  std::vector<PdoMapping> mappings;
};

/// Adds the parameters of all PDOs of `board` that are numbered 1 to 255. Where several have one
/// number, the first counts.
void add_pdo_parameters(ObjectDictionary& objects, std::uint8_t node_id, const BoardConfig& board);

/// The PDO whose parameters stand at `index`; no value for an index that is none of a PDO.
std::optional<PdoName> pdo_with_parameters_at(std::uint16_t index);

/// Why the parameter does not take `value`, which has the right length; no value when it does, and
/// for an object that is none.
///
/// A COB-ID changes only by way of bit 31, and mappings and their number only while it is set;
/// entries only while their number is 0. An object is mapped in full or in part, if the bus may
/// access it in that direction.
std::optional<SdoAbort> pdo_parameter_refusal(const ObjectDictionary& objects, ObjectAddress at,
                                              const std::vector<std::uint8_t>& value);

/// The PDOs of a node by number, kept beside the objects that tell of them.
class NodePdos {
 public:
  /// Those that `objects` has parameters of.
  explicit NodePdos(const ObjectDictionary& objects);

  /// Takes in what `objects` holds. Those that are known are looked at, no others.
  void refresh(const ObjectDictionary& objects);

  /// As above, after a write at `index`.
  void refresh(const ObjectDictionary& objects, std::uint16_t index);

  /// The PDO of that number; null when there is none.
  const PdoParameters* find(PdoDirection direction, std::uint8_t number) const;

  const std::map<std::uint8_t, PdoParameters>& all(PdoDirection direction) const;

 private:
  std::map<std::uint8_t, PdoParameters>& of(PdoDirection direction);

  std::map<std::uint8_t, PdoParameters> rpdos_;
  std::map<std::uint8_t, PdoParameters> tpdos_;
};

}  // namespace velmora_can_bridge

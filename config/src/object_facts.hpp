// What is known of the objects of a node: from the profile of its devices, from CiA 301, and from
// what its file says of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "node_facts.hpp"
#include "problem_list.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// What CiA 301 or the profile of one of the node's devices says of the object; no value when they
/// say nothing.
std::optional<ProfileObject> profile_object(const NodeFacts& facts, std::uint16_t index,
                                            std::uint8_t sub_index);

/// The object at sub-index 0 of `index` when it is the only one there, and `sub_index` another.
std::optional<ProfileObject> lone_object(const NodeFacts& facts, std::uint16_t index,
                                         std::uint8_t sub_index);

/// A length that an object must have, and what says so.
struct KnownLength {
  /// In bytes.
  std::size_t length = 0;
  /// "is mapped in line 5", as messages go on after the object.
  std::string reason;
};

/// The length of the object's values, as its description, a mapping or a profile tells; no value
/// when none of them does.
std::optional<KnownLength> known_length(const NodeFacts& facts, std::uint16_t index,
                                        std::uint8_t sub_index);

/// As `known_length`, but for what the file describes.
std::optional<KnownLength> carried_length(const NodeFacts& facts, std::uint16_t index,
                                          std::uint8_t sub_index);

/// The type of its numbers; no value for any number of bytes.
std::optional<ValueType> profile_type(const ProfileObject& object);

/// Whether a PDO maps the object, for all that is known.
bool may_be_mapped(const NodeFacts& facts, ValueAddress address);

/// Reports a description's type that is not the one of the profile, though it has its length.
void check_described_type(const NodeFacts& facts, const YamlValue& source, ValueAddress address,
                          ProblemList& problems);

/// Reports an index of `record` that was written without the "0x" that makes it one: what it names
/// is no object, and what it would name with it is.
void check_index_digits(const NodeFacts& facts, const YamlValue& record, std::uint16_t index,
                        ProblemList& problems);

/// Whether operations write nothing into the field, which has no whole byte: 1 to 7 bits.
bool is_short_field(const PdoMapping& mapping);

}  // namespace velmora_can_bridge

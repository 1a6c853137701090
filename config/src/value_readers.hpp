// From the YAML tree to what values mean.
#pragma once

#include <optional>

#include "member_readers.hpp"
#include "problem_list.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// In the place of a reader, for keys that `read_values` reads later.
template <typename Record>
void read_with_values(const Item& /*item*/, Record& /*record*/) {}

/// The object that a mapping or an entry of `objects` names; no value when that is unreadable.
std::optional<ValueAddress> readable_address(const YamlValue& source);

/// Fills `node.values` from what `source` says of the fields of its PDOs and of its other objects,
/// and reports what is wrong with it. `node` has been read from `source`, but for its values.
///
/// What could not be read describes nothing, so that one mistake is not reported twice.
void read_values(const YamlValue& source, NodeConfig& node, ProblemList& problems);

}  // namespace velmora_can_bridge

// How the parts of a description fit together, and to what carries the value.
#pragma once

#include "problem_list.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/config/value_description.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Judges the description `value` that the record `source` gives of an object reached by SDO.
void check_object_value(const YamlValue& source, const ValueDescription& value,
                        ProblemList& problems);

/// As `check_object_value`, of the object that `mapping` maps, which has to fit its bits.
void check_field_value(const YamlValue& source, const ValueDescription& value,
                       const PdoMapping& mapping, ProblemList& problems);

/// Judges the counts of a description without a type by the type that is known otherwise.
void check_counts(const YamlValue& source, const ValueDescription& value, ValueType type,
                  ProblemList& problems);

}  // namespace velmora_can_bridge

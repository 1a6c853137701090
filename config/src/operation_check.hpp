// What the checks of operations share.
#pragma once

#include <string>
#include <string_view>

#include "node_facts.hpp"
#include "problem_list.hpp"
#include "record_access.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// An operation that could be read, where it stands, and the list to report to.
struct OperationCheck {
  const NodeFacts& facts;
  const YamlValue& source;
  const OperationConfig& op;
  ProblemList& problems;

  bool has(std::string_view key) const { return source.find(key) != nullptr; }
  bool goes_by_sdo() const { return op.transport == "sdo"; }

  /// The place of the key's value, else of the operation.
  Position at(std::string_view key) const { return member_or_record(source, key).at; }

  /// Reports "<key>: <message>" at the key's value.
  void error(std::string_view key, const std::string& message) const {
    problems.error(at(key), std::string(key) + ": " + message);
  }
  void warning(std::string_view key, const std::string& message) const {
    problems.warning(at(key), std::string(key) + ": " + message);
  }

  /// Warns when the key is there, as `reason` keeps it from being read.
  void warn_of_unread(std::string_view key, const std::string& reason) const {
    if (has(key)) {
      warning(key, "is not read, " + reason);
    }
  }
};

/// Operations on objects by SDO.
void check_sdo_write(const OperationCheck& check);
void check_sdo_read(const OperationCheck& check);
void check_read_multi(const OperationCheck& check);
/// The object at `index` and `sub_index` that the operation writes by SDO, with what it writes.
void check_written_object(const OperationCheck& check);
/// Whether `data_type` suits the object at `index` and `sub_index`.
void check_data_type(const OperationCheck& check);

/// Warns where the sign of `data_type` is not that of the object's description, which counts.
void check_data_sign(const OperationCheck& check, ValueAddress address);

/// Operations through the image of an RPDO.
void check_led_write(const OperationCheck& check);
void check_auto_write(const OperationCheck& check);
void check_pdo_write(const OperationCheck& check);
void check_bit_patch(const OperationCheck& check);
void check_pdo_bit_patch(const OperationCheck& check);
void check_pump_duty(const OperationCheck& check);

/// Operations that need a device of some sort.
void check_any_device(const OperationCheck& check);
void check_drive(const OperationCheck& check);
void check_set_target(const OperationCheck& check);
void check_ramp(const OperationCheck& check);
void check_claw_action(const OperationCheck& check);

}  // namespace velmora_can_bridge

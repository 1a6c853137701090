#include "operation_checks.hpp"

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ground/kind_tables.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "operation_check.hpp"
#include "record_access.hpp"
#include "record_readers.hpp"

namespace velmora_can_bridge {
namespace {

/// What the RPDOs of a node offer to operations. 0 stands for "of any number", as in operations.
class RpdoFields {
 public:
  explicit RpdoFields(const NodeFacts& facts)
      : has_unknown_number_(!facts.has_known_keys ||
                            !is_absent_or(YamlType::list, facts.source.find("pdos"))) {
    const BoardConfig& board = facts.node.board;
    const std::vector<const YamlValue*>& pdos = elements_at(facts.source, "pdos");
    if (has_unknown_number_) {
      unknown_fields_.insert(0);
    }
    for (std::size_t position = 0; position < pdos.size(); ++position) {
      // An unreadable direction may be either.
      if (!is_tpdo(board.pdos[position])) {
        add(*pdos[position], board.pdos[position]);
      }
    }
  }

  bool may_have(std::uint8_t number) const {
    return number == 0 || has_unknown_number_ || numbers_.count(number) != 0;
  }

  bool may_map(std::uint8_t number, const std::string& field) const {
    const std::uint8_t searched = has_unknown_number_ ? std::uint8_t{0} : number;
    return unknown_fields_.count(searched) != 0 || fields_.count({searched, field}) != 0;
  }

 private:
  static bool is_absent_or(YamlType type, const YamlValue* value) {
    return value == nullptr || value->type == type;
  }

  void add(const YamlValue& source, const PdoConfig& pdo) {
    numbers_.insert(pdo.number);
    has_unknown_number_ = has_unknown_number_ || pdo.number == 0;
    const YamlValue* mappings = source.find("mappings");
    if (mappings == nullptr || mappings->type != YamlType::list) {
      add_unknown_field(pdo.number);
      return;
    }
    for (std::size_t position = 0; position < pdo.mappings.size(); ++position) {
      add_field(*mappings->elements[position], pdo.number, pdo.mappings[position].field);
    }
  }

  void add_field(const YamlValue& mapping, std::uint8_t number, const std::string& field) {
    if (mapping.type != YamlType::map || !is_absent_or(YamlType::scalar, mapping.find("field"))) {
      add_unknown_field(number);
    } else if (!field.empty()) {
      fields_.emplace(0, field);
      fields_.emplace(number, field);
    }
  }

  void add_unknown_field(std::uint8_t number) {
    unknown_fields_.insert(0);
    unknown_fields_.insert(number);
  }

  std::set<std::uint8_t> numbers_;
  /// A number could not be read: every number may be it.
  bool has_unknown_number_;
  std::set<std::pair<std::uint8_t, std::string_view>> fields_;
  /// RPDOs with a field that could not be read: every field may be it.
  std::set<std::uint8_t> unknown_fields_;
};

void check_number(const YamlValue& operation, std::string_view member, std::uint8_t number,
                  const RpdoFields& rpdos, ProblemList& problems) {
  if (!rpdos.may_have(number)) {
    problems.error(member_or_record(operation, member).at,
                   std::string(member) + ": this node has no RPDO " + std::to_string(number));
  }
}

/// Checks the names that operations give to one RPDO, or to any when its number is 0.
class FieldCheck {
 public:
  FieldCheck(std::uint8_t number, const RpdoFields& rpdos, ProblemList& problems)
      : number_(rpdos.may_have(number) ? number : std::uint8_t{0}),
        rpdos_(&rpdos),
        problems_(&problems) {}

  void check(std::string_view member, const std::string& field, Position at) const {
    if (rpdos_->may_map(number_, field)) {
      return;
    }
    const std::string rpdo =
        number_ == 0 ? "no RPDO of this node maps a field "
                     : "RPDO " + std::to_string(number_) + " of this node maps no field ";
    problems_->error(at, std::string(member) + ": " + rpdo + quoted(field));
  }

 private:
  std::uint8_t number_;
  const RpdoFields* rpdos_;
  ProblemList* problems_;
};

void check_references(const YamlValue& source, const OperationConfig& operation,
                      const RpdoFields& rpdos, ProblemList& problems) {
  check_number(source, "pdo_number", operation.pdo_number, rpdos, problems);
  check_number(source, "pump_pdo_number", operation.pump_pdo_number, rpdos, problems);
  const FieldCheck fields(operation.pdo_number, rpdos, problems);
  if (!operation.field.empty()) {
    fields.check("field", operation.field, member_or_record(source, "field").at);
  }
  const std::vector<const YamlValue*>& names = elements_at(source, "fields");
  for (std::size_t position = 0; position < names.size(); ++position) {
    if (names[position]->type == YamlType::scalar) {
      fields.check("fields", operation.fields[position], names[position]->at);
    }
  }
}

struct Row {
  std::string_view kind;
  void (*check)(const OperationCheck& check);
};

constexpr Row rows[] = {
    {"sdo_write", check_sdo_write},
    {"sdo_read", check_sdo_read},
    {"od_io_read", check_any_device},
    {"od_io_write", check_any_device},
    {"led_write", check_led_write},
    {"read_multi", check_read_multi},
    {"auto_write", check_auto_write},
    {"pdo_write", check_pdo_write},
    {"pdo_patch", check_pdo_write},
    {"bit_patch", check_bit_patch},
    {"pdo_bit_patch", check_pdo_bit_patch},
    {"ci402_enable", check_drive},
    {"ci402_disable", check_drive},
    {"ci402_quick_stop", check_drive},
    {"ci402_set_mode", check_drive},
    {"ci402_set_target", check_set_target},
    {"ci402_ramp", check_ramp},
    {"claw_action", check_claw_action},
    {"pump_duty", check_pump_duty},
};
static_assert(has_rows_for(rows, operation_kinds), "a kind of operation_kinds has no check");
static_assert(has_rows_for(operation_kinds, rows), "a checked kind is not in operation_kinds");

void check_repeated_fields(const OperationCheck& check) {
  const std::vector<const YamlValue*>& names = elements_at(check.source, "fields");
  std::set<std::string_view> seen;
  for (const YamlValue* name : names) {
    if (!seen.insert(name->text).second) {
      check.problems.error(name->at, "fields: " + quoted(name->text) + " stands twice");
    }
  }
}

/// What the kind makes of all of the operation's keys.
void check_meaning(const OperationCheck& check) {
  check_repeated_fields(check);
  check_index_digits(check.facts, check.source, check.op.index, check.problems);
  for (const Row& row : rows) {
    if (row.kind == check.op.kind) {
      row.check(check);
    }
  }
}

}  // namespace

void check_operations(const NodeFacts& facts, ProblemList& problems) {
  const RpdoFields rpdos(facts);
  for (const YamlEntry& entry : entries_at(facts.source, "operations")) {
    const auto found = facts.node.operations.find(std::string(entry.key()));
    if (found == facts.node.operations.end()) {
      continue;
    }
    check_references(*entry.value, found->second, rpdos, problems);
    if (is_readable_operation(*entry.value)) {
      check_meaning({facts, *entry.value, found->second, problems});
    }
  }
}

}  // namespace velmora_can_bridge

#include "board_checks.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "record_access.hpp"

namespace velmora_can_bridge {
namespace {

/// What the RPDOs of a node offer to operations. 0 stands for "of any number", as in operations.
class RpdoFields {
 public:
  RpdoFields(const YamlValue& node, const BoardConfig& board)
      : has_unknown_number_(!is_absent_or(YamlType::list, node.find("pdos"))) {
    const std::vector<const YamlValue*>& pdos = elements_at(node, "pdos");
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

void check_field_names(const YamlValue& pdo, const PdoConfig& config, ProblemList& problems) {
  const std::vector<const YamlValue*>& mappings = elements_at(pdo, "mappings");
  FirstUses<std::string_view> uses;
  for (std::size_t position = 0; position < mappings.size(); ++position) {
    const std::string& field = config.mappings[position].field;
    if (!field.empty()) {
      uses.add(field, member_or_record(*mappings[position], "field").at,
               "field " + quoted(field) + " of this PDO", problems);
    }
  }
}

/// Bits of a PDO before and after one of its mappings.
struct BitRange {
  unsigned begin;
  unsigned end;
};

void check_alignment(BitRange bits, Position at, ProblemList& problems) {
  if (bits.begin % 8 != 0 || bits.end % 8 != 0) {
    problems.warning(at, "mapping: bits " + std::to_string(bits.begin) + " to " +
                             std::to_string(bits.end - 1) +
                             " are not whole bytes, operations on the field miss some of them");
  }
}

void check_layout(const YamlValue& pdo, const PdoConfig& config, ProblemList& problems) {
  constexpr unsigned pdo_bits = 64;
  const std::vector<const YamlValue*>& mappings = elements_at(pdo, "mappings");
  unsigned begin = 0;
  for (std::size_t position = 0; position < mappings.size(); ++position) {
    const unsigned end = begin + config.mappings[position].bit_length;
    // After an unreadable length nothing is known about the rest.
    if (end == begin) {
      return;
    }
    if (end > pdo_bits) {
      problems.error(mappings[position]->at, "mapping: ends after " + std::to_string(end) +
                                                 " bits, a PDO has no more than 64");
      return;
    }
    check_alignment({begin, end}, mappings[position]->at, problems);
    begin = end;
  }
}

/// CiA 301, 7.5.2.35: the types that ask for remote frames are those of TPDOs alone.
void check_transmission(const YamlValue& pdo, const PdoConfig& config, ProblemList& problems) {
  const std::uint8_t type = config.transmission.value_or(0);
  const bool asks_for_remote_frames = type == 252 || type == 253;
  if (asks_for_remote_frames && is_rpdo(config)) {
    report_unexpected({"transmission", member_or_record(pdo, "transmission"), problems},
                      "0 to 240, 254 or 255 for an RPDO");
  }
}

/// Reports PDOs that have the COB-ID of an earlier one, unless all of them say that they share it.
class CobIdCheck {
 public:
  explicit CobIdCheck(ProblemList& problems) : problems_(&problems) {}

  void add(std::uint8_t node_id, const YamlValue& source, const PdoConfig& pdo) {
    const std::uint16_t cob_id = known_cob_id(node_id, source, pdo);
    if (cob_id == 0) {
      return;
    }
    const Use use{node_id, &pdo, member_or_record(source, "cob_id").at};
    const bool is_shared = may_be_shared(source, pdo);
    const Uses& rivals = is_shared ? unshared_uses_ : uses_;
    if (const auto rival = rivals.find(cob_id); rival != rivals.end()) {
      report_clash(cob_id, rival->second, use);
    }
    uses_.emplace(cob_id, use);
    if (!is_shared) {
      unshared_uses_.emplace(cob_id, use);
    }
  }

 private:
  struct Use {
    std::uint8_t node_id;
    const PdoConfig* pdo;
    Position at;
  };
  /// The first one of each COB-ID.
  using Uses = std::map<std::uint16_t, Use>;

  /// 0 when the PDO has none, or what gives it could not be read.
  static std::uint16_t known_cob_id(std::uint8_t node_id, const YamlValue& source,
                                    const PdoConfig& pdo) {
    const bool is_unreadable = pdo.cob_id == 0 && source.find("cob_id") != nullptr;
    const bool has_name = node_id != 0 && pdo.number != 0 && !pdo.direction.empty();
    return has_name && !is_unreadable ? cob_id_of(node_id, pdo) : std::uint16_t{0};
  }

  static bool may_be_shared(const YamlValue& source, const PdoConfig& pdo) {
    const YamlValue* member = source.find("shared_cob_id");
    ProblemList reported_before{};
    return pdo.shared_cob_id ||
           (member != nullptr && !flag_of({"shared_cob_id", *member, reported_before}));
  }

  /// A node or a PDO that stands twice is a mistake of its own.
  static bool is_same_pdo(const Use& one, const Use& other) {
    return one.node_id == other.node_id && one.pdo->direction == other.pdo->direction &&
           one.pdo->number == other.pdo->number;
  }

  void report_clash(std::uint16_t cob_id, const Use& earlier, const Use& later) {
    if (is_same_pdo(earlier, later)) {
      return;
    }
    problems_->error(
        later.at, "COB-ID " + hex<4>(cob_id) + " is that of " + earlier.pdo->direction + " " +
                      std::to_string(earlier.pdo->number) + " of node " + hex<2>(earlier.node_id) +
                      " in line " + std::to_string(earlier.at.line) +
                      ", too; if that is meant, all PDOs that have it say "
                      "shared_cob_id: true");
  }

  Uses uses_;
  Uses unshared_uses_;
  ProblemList* const problems_;
};

void check_pdos(const YamlValue& source, const NodeConfig& node, CobIdCheck& cob_ids,
                ProblemList& problems) {
  const std::vector<const YamlValue*>& pdos = elements_at(source, "pdos");
  FirstUses<std::pair<std::string_view, std::uint8_t>> uses;
  for (std::size_t position = 0; position < pdos.size(); ++position) {
    const PdoConfig& config = node.board.pdos[position];
    if (config.number != 0 && !config.direction.empty()) {
      uses.add({config.direction, config.number}, member_or_record(*pdos[position], "number").at,
               config.direction + " " + std::to_string(config.number) + " of this node", problems);
    }
    check_transmission(*pdos[position], config, problems);
    cob_ids.add(node.node_id, *pdos[position], config);
    check_field_names(*pdos[position], config, problems);
    check_layout(*pdos[position], config, problems);
  }
}

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

void check_operation(const YamlValue& source, const OperationConfig& operation,
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

void check_operations(const YamlValue& source, const NodeConfig& node, ProblemList& problems) {
  const RpdoFields rpdos(source, node.board);
  for (const YamlEntry& entry : entries_at(source, "operations")) {
    const auto found = node.operations.find(std::string(entry.key()));
    if (found != node.operations.end()) {
      check_operation(*entry.value, found->second, rpdos, problems);
    }
  }
}

}  // namespace

void check_board(const YamlValue& root, const BoardFile& board, ProblemList& problems) {
  const std::vector<const YamlValue*>& nodes = elements_at(root, "nodes");
  FirstUses<std::uint8_t> node_ids;
  FirstUses<std::string_view> devices;
  CobIdCheck cob_ids(problems);
  for (std::size_t position = 0; position < nodes.size(); ++position) {
    const YamlValue& source = *nodes[position];
    const NodeConfig& node = board.nodes[position];
    if (node.node_id != 0) {
      node_ids.add(node.node_id, member_or_record(source, "node_id").at,
                   "node_id " + std::to_string(node.node_id), problems);
    }
    for (const YamlEntry& entry : entries_at(source, "device_od_map")) {
      devices.add(entry.key(), entry.key_value->at, "device " + quoted(entry.key()), problems);
    }
    check_pdos(source, node, cob_ids, problems);
    check_operations(source, node, problems);
  }
}

}  // namespace velmora_can_bridge

#include "pdo_checks.hpp"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ground/number_text.hpp"
#include "ground/parse_number.hpp"
#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "object_facts.hpp"
#include "record_access.hpp"
#include "record_readers.hpp"

namespace velmora_can_bridge {
namespace {

/// Why nobody can name the field where a payload is written as words; empty where people can.
std::string unnameable_text(const std::string& field) {
  if (field.find_first_of("=:") != std::string::npos) {
    return R"(cannot be named in words, where "=" and ":" end a name)";
  }
  return parse_number(field) ? "cannot be named in words, where it is a number" : "";
}

void check_field_names(const YamlValue& pdo, const PdoConfig& config, ProblemList& problems) {
  const std::vector<const YamlValue*>& mappings = elements_at(pdo, "mappings");
  FirstUses<std::string_view> uses;
  for (std::size_t position = 0; position < mappings.size(); ++position) {
    const std::string& field = config.mappings[position].field;
    if (const std::string reason = unnameable_text(field); !reason.empty()) {
      problems.warning(member_or_record(*mappings[position], "field").at,
                       "field: " + quoted(field) + " " + reason);
    }
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
    // Of all short fields of an RPDO one warning tells; to what is only read it makes no odds.
    if (is_rpdo(config) && !is_short_field(config.mappings[position])) {
      check_alignment({begin, end}, mappings[position]->at, problems);
    }
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

/// 0 when the PDO has none, or what gives it could not be read.
std::uint16_t known_cob_id(std::uint8_t node_id, const YamlValue& source, const PdoConfig& pdo) {
  const bool is_unreadable = pdo.cob_id == 0 && source.find("cob_id") != nullptr;
  const bool has_name = node_id != 0 && pdo.number != 0 && !pdo.direction.empty();
  return has_name && !is_unreadable ? cob_id_of(node_id, pdo) : std::uint16_t{0};
}

bool may_be_shared(const YamlValue& source, const PdoConfig& pdo) {
  const YamlValue* member = source.find("shared_cob_id");
  ProblemList reported_before{};
  return pdo.shared_cob_id ||
         (member != nullptr && !flag_of({"shared_cob_id", *member, reported_before}));
}

/// A field of an RPDO that operations cannot write, as they write whole bytes. One warning for all
/// of the RPDO.
void check_short_fields(const YamlValue& source, const PdoConfig& pdo, ProblemList& problems) {
  const std::vector<const YamlValue*>& mappings = elements_at(source, "mappings");
  for (std::size_t position = 0; position < mappings.size(); ++position) {
    const PdoMapping& mapping = pdo.mappings[position];
    if (is_short_field(mapping)) {
      problems.warning(mappings[position]->at,
                       "mapping: operations cannot write the fields of fewer than 8 bits of this "
                       "RPDO, they write whole bytes; write their objects by SDO");
      return;
    }
  }
}

/// Reports objects that RPDOs of the node map a second time: what one image writes, the next send
/// of the other takes back.
void check_mapped_twice(const NodeFacts& facts, ProblemList& problems) {
  std::map<ValueAddress, Position> first;
  const std::vector<const YamlValue*>& pdos = elements_at(facts.source, "pdos");
  for (std::size_t pdo = 0; pdo < pdos.size(); ++pdo) {
    const PdoConfig& config = facts.node.board.pdos[pdo];
    const std::vector<const YamlValue*>& mappings = elements_at(*pdos[pdo], "mappings");
    for (std::size_t position = 0; is_rpdo(config) && position < mappings.size(); ++position) {
      const PdoMapping& mapping = config.mappings[position];
      if (!carries_object(mapping)) {
        continue;
      }
      const auto [earlier, is_new] =
          first.emplace(ValueAddress{mapping.index, mapping.sub_index}, mappings[position]->at);
      if (!is_new) {
        problems.warning(mappings[position]->at,
                         "mapping: object " + object_text(mapping.index, mapping.sub_index) +
                             " is mapped by an RPDO in line " +
                             std::to_string(earlier->second.line) +
                             " already; each send of the one takes back what the other wrote");
      }
    }
  }
}

/// Of a TPDO it is what the node sends, and nothing is written with it.
void report_length(const YamlValue& source, const PdoConfig& pdo, const std::string& message,
                   ProblemList& problems) {
  const Position at = member_or_record(source, "bit_length").at;
  if (is_rpdo(pdo)) {
    problems.error(at, message);
  } else {
    problems.warning(at, message);
  }
}

/// What a mapping of a known object has wrong.
void check_mapped_object(const NodeFacts& facts, const YamlValue& source, const PdoConfig& pdo,
                         const PdoMapping& mapping, ProblemList& problems) {
  const std::string object = object_text(mapping.index, mapping.sub_index);
  if (const auto lone = lone_object(facts, mapping.index, mapping.sub_index)) {
    problems.error(member_or_record(source, "sub_index").at, "sub_index: " + hex<4>(mapping.index) +
                                                                 " is " + lone->name +
                                                                 ", which has sub-index 0 alone");
    return;
  }
  const auto known = profile_object(facts, mapping.index, mapping.sub_index);
  if (!known) {
    return;
  }
  check_described_type(facts, source, {mapping.index, mapping.sub_index}, problems);
  if (known->length != 0 && known->length * 8 != mapping.bit_length) {
    report_length(source, pdo,
                  "bit_length: " + object + " is " + known->name + ", write " +
                      std::to_string(known->length * 8),
                  problems);
  }
  if (is_rpdo(pdo) && !known->is_writable) {
    problems.error(source.at, "mapping: " + object + " is " + known->name +
                                  ", which a node does not receive; map it in a TPDO");
  }
}

void check_mapped_objects(const NodeFacts& facts, const YamlValue& source, const PdoConfig& pdo,
                          ProblemList& problems) {
  const std::vector<const YamlValue*>& mappings = elements_at(source, "mappings");
  for (std::size_t position = 0; position < mappings.size(); ++position) {
    const PdoMapping& mapping = pdo.mappings[position];
    check_index_digits(facts, *mappings[position], mapping.index, problems);
    check_mapped_object(facts, *mappings[position], pdo, mapping, problems);
  }
}

}  // namespace

void CobIdCheck::add(std::uint8_t node_id, const YamlValue& source, const PdoConfig& pdo) {
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

bool CobIdCheck::is_same_pdo(const Use& one, const Use& other) {
  return one.node_id == other.node_id && one.pdo->direction == other.pdo->direction &&
         one.pdo->number == other.pdo->number;
}

void CobIdCheck::report_clash(std::uint16_t cob_id, const Use& earlier, const Use& later) {
  if (is_same_pdo(earlier, later)) {
    return;
  }
  problems_->error(later.at, "COB-ID " + hex<4>(cob_id) + " is that of " + earlier.pdo->direction +
                                 " " + std::to_string(earlier.pdo->number) + " of node " +
                                 hex<2>(earlier.node_id) + " in line " +
                                 std::to_string(earlier.at.line) +
                                 ", too; if that is meant, all PDOs that have it say "
                                 "shared_cob_id: true");
}

void check_pdos(const NodeFacts& facts, CobIdCheck& cob_ids, ProblemList& problems) {
  const NodeConfig& node = facts.node;
  const std::vector<const YamlValue*>& pdos = elements_at(facts.source, "pdos");
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
    if (is_rpdo(config)) {
      check_short_fields(*pdos[position], config, problems);
    }
    if (is_readable_pdo(*pdos[position])) {
      check_mapped_objects(facts, *pdos[position], config, problems);
    }
  }
  if (facts.knows_pdos) {
    check_mapped_twice(facts, problems);
  }
}

}  // namespace velmora_can_bridge

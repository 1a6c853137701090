// PDOs: what stands twice, how they are laid out, what identifiers their frames have.
#pragma once

#include <cstdint>
#include <map>

#include "node_facts.hpp"
#include "problem_list.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Reports PDOs that have the COB-ID of an earlier one, unless all of them say that they share it.
class CobIdCheck {
 public:
  explicit CobIdCheck(ProblemList& problems) : problems_(&problems) {}

  void add(std::uint8_t node_id, const YamlValue& source, const PdoConfig& pdo);

 private:
  struct Use {
    std::uint8_t node_id;
    const PdoConfig* pdo;
    Position at;
  };
  /// The first one of each COB-ID.
  using Uses = std::map<std::uint16_t, Use>;

  /// A node or a PDO that stands twice is a mistake of its own.
  static bool is_same_pdo(const Use& one, const Use& other);
  void report_clash(std::uint16_t cob_id, const Use& earlier, const Use& later);

  Uses uses_;
  Uses unshared_uses_;
  ProblemList* const problems_;
};

/// Judges the PDOs of one node, and notes their COB-IDs in `cob_ids`.
void check_pdos(const NodeFacts& facts, CobIdCheck& cob_ids, ProblemList& problems);

}  // namespace velmora_can_bridge

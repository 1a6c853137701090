#include "board_checks.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "device_checks.hpp"
#include "node_facts.hpp"
#include "object_checks.hpp"
#include "operation_checks.hpp"
#include "pdo_checks.hpp"
#include "record_access.hpp"

namespace velmora_can_bridge {
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
    const NodeFacts facts(source, node);
    check_pdos(facts, cob_ids, problems);
    check_devices(facts, problems);
    check_objects(facts, problems);
    check_operations(facts, problems);
  }
}

}  // namespace velmora_can_bridge

#include "record_readers.hpp"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ground/pdo.hpp"
#include "member_readers.hpp"
#include "value_readers.hpp"
#include "velmora_can_bridge/node_id.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/predefined_cob_id.hpp"

namespace velmora_can_bridge {
namespace {

using std::string;
using std::uint16_t;
using std::uint64_t;
using std::uint8_t;

constexpr std::string_view directions[] = {rpdo_direction, tpdo_direction};
constexpr std::string_view profiles[] = {"", "ci402", "claw", "io"};
// Narrower than the core, for which every text but "sdo" is the RPDO path: a slip is found here.
constexpr std::string_view transports[] = {"", "sdo", "pdo"};
constexpr std::string_view data_types[] = {"", "raw", "u8", "s8", "u16", "s16", "u32", "s32"};
constexpr std::string_view actions[] = {"extend", "home", "query"};
constexpr std::string_view led_operations[] = {"set_led", "set_color", "set_mode"};

void read_kind(const Item& item, string& target) {
  if (item.value.type == YamlType::scalar && find_operation_kind(item.value.text) != nullptr) {
    target = item.value.text;
    return;
  }
  std::vector<std::string_view> kinds;
  for (const OperationKind& row : operation_kinds) {
    kinds.push_back(row.kind);
  }
  report_no_choice(item, kinds, enumeration({kinds.begin(), kinds.end()}));
}

constexpr auto read_bytes = read_list<uint8_t, read_number<uint8_t>>;
constexpr auto read_texts = read_list<string, read_text>;

constexpr Member<PdoMapping> mapping_members[] = {
    {"index", required, read_into<&PdoMapping::index, read_number<uint16_t, 1>>},
    {"sub_index", optional, read_into<&PdoMapping::sub_index, read_number<uint8_t>>},
    {"bit_length", required, read_into<&PdoMapping::bit_length, read_number<uint8_t, 1, 64>>},
    {"field", optional, read_into<&PdoMapping::field, read_text>},
    {"type", optional, read_with_values<PdoMapping>},
    {"unit", optional, read_with_values<PdoMapping>},
    {"minimum", optional, read_with_values<PdoMapping>},
    {"maximum", optional, read_with_values<PdoMapping>},
    {"scale", optional, read_with_values<PdoMapping>},
    {"values", optional, read_with_values<PdoMapping>},
};

void read_mapping(const Item& item, PdoMapping& mapping) {
  read_record("mapping", item, mapping_members, mapping);
}

/// The identifiers that CiA 301 (7.3.5) leaves to PDOs: not those of NMT, SYNC, emergencies, SDO
/// and heartbeats, nor the restricted ones.
void read_cob_id(const Item& item, uint16_t& target) {
  constexpr uint16_t highest_pdo_cob_id = 0x6DF;
  if (const auto number =
          number_among(item,
                       {{predefined_tpdo_cob_id(1, 1), sdo_answer_cob_id - 1},
                        {sdo_request_cob_id + highest_node_id + 1, highest_pdo_cob_id}},
                       "an identifier that PDOs may have, 0x181 to 0x57F or 0x680 to 0x6DF")) {
    target = static_cast<uint16_t>(*number);
  }
}

/// Those of either direction; which an RPDO may have is judged where its direction is known.
void read_transmission(const Item& item, std::optional<uint8_t>& target) {
  if (const auto number =
          number_among(item, {{0, 240}, {252, 255}},
                       "a transmission type, 0 to 240, 254 or 255, for a TPDO also 252 or 253")) {
    target = static_cast<uint8_t>(*number);
  }
}

constexpr Member<PdoConfig> pdo_members[] = {
    {"number", required, read_into<&PdoConfig::number, read_number<uint8_t, 1>>},
    {"direction", required, read_into<&PdoConfig::direction, read_choice<directions>>},
    {"cob_id", optional, read_into<&PdoConfig::cob_id, read_cob_id>},
    {"transmission", optional, read_into<&PdoConfig::transmission, read_transmission>},
    {"shared_cob_id", optional, read_into<&PdoConfig::shared_cob_id, read_flag>},
    {"mappings", required, read_into<&PdoConfig::mappings, read_list<PdoMapping, read_mapping>>},
};

void read_pdo(const Item& item, PdoConfig& pdo) { read_record("pdo", item, pdo_members, pdo); }

constexpr Member<DeviceOdEntry> device_members[] = {
    {"profile", optional, read_into<&DeviceOdEntry::profile, read_choice<profiles>>},
    {"base_index", required, read_into<&DeviceOdEntry::base_index, read_number<uint16_t>>},
    {"homing_record", optional, read_into<&DeviceOdEntry::homing_record, read_number<uint16_t>>},
};

void read_device(const Item& item, DeviceOdEntry& device) {
  read_record("device", item, device_members, device);
}

using Op = OperationConfig;

constexpr Member<Op> operation_members[] = {
    {"kind", required, read_into<&Op::kind, read_kind>},
    {"label", optional, read_into<&Op::label, read_text>},
    {"description", optional, read_into<&Op::description, read_text>},
    {"option_flag", optional, read_into<&Op::option_flag, read_flag>},
    {"transport", optional, read_into<&Op::transport, read_choice<transports>>},
    {"index", optional, read_into<&Op::index, read_number<uint16_t>>},
    {"sub_index", optional, read_into<&Op::sub_index, read_number<uint8_t>>},
    {"subindex_in_payload", optional, read_into<&Op::subindex_in_payload, read_flag>},
    {"sub_indices", optional, read_into<&Op::sub_indices, read_bytes>},
    {"fixed_data", optional, read_into<&Op::fixed_data, read_data>},
    {"default_data", optional, read_into<&Op::default_data, read_data>},
    {"data_type", optional, read_into<&Op::data_type, read_choice<data_types>>},
    {"field", optional, read_into<&Op::field, read_text>},
    {"pdo_number", optional, read_into<&Op::pdo_number, read_number<uint8_t>>},
    {"refresh_shadow", optional, read_into<&Op::refresh_shadow, read_flag>},
    {"bit_index", optional, read_into<&Op::bit_index, read_number<uint8_t, 0, 7>>},
    {"named", optional, read_into<&Op::named, read_flag>},
    {"fields", optional, read_into<&Op::fields, read_texts>},
    {"index_offset", optional, read_into<&Op::index_offset, read_number<uint16_t>>},
    {"action", optional, read_into<&Op::action, read_choice<actions>>},
    {"led_operation", optional, read_into<&Op::led_operation, read_choice<led_operations>>},
    {"pump_pdo_number", optional, read_into<&Op::pump_pdo_number, read_number<uint8_t>>},
    {"rpdo_channels", optional, read_into<&Op::rpdo_channels, read_bytes>},
    {"sdo_channels", optional, read_into<&Op::sdo_channels, read_bytes>},
};

bool is_for_every_kind(std::string_view member) {
  return member == "kind" || member == "label" || member == "description" ||
         member == "option_flag";
}

void report_missing_members(const Item& item, const OperationKind& kind) {
  for (const std::string_view member : kind.required) {
    if (item.value.find(member) == nullptr) {
      item.problems.error(item.value.at, "operation: missing key " + quoted(member) + ", which " +
                                             string(kind.kind) + " needs");
    }
  }
}

void report_unread_members(const Item& item, const OperationKind& kind) {
  for (const YamlEntry& entry : item.value.entries) {
    const bool is_member = find_member(operation_members, entry.key()) != nullptr;
    if (is_member && !is_for_every_kind(entry.key()) && !kind.members.contains(entry.key())) {
      item.problems.warning(entry.key_value->at, "operation: " + string(kind.kind) +
                                                     " does not read " + quoted(entry.key()));
    }
  }
}

void read_operation(const Item& item, OperationConfig& operation) {
  read_record("operation", item, operation_members, operation);
  if (const OperationKind* kind = find_operation_kind(operation.kind)) {
    report_missing_members(item, *kind);
    report_unread_members(item, *kind);
  }
}

void read_devices(const Item& item, NodeConfig& node) {
  read_named<std::unordered_map<string, DeviceOdEntry>, read_device>(item,
                                                                     node.board.device_od_map);
}

void read_pdos(const Item& item, NodeConfig& node) {
  read_list<PdoConfig, read_pdo>(item, node.board.pdos);
}

constexpr Member<NodeConfig> node_members[] = {
    {"node_id", required,
     read_into<&NodeConfig::node_id, read_number<uint8_t, 1, highest_node_id>>},
    {"device_od_map", optional, read_devices},
    {"pdos", optional, read_pdos},
    {"objects", optional, read_with_values<NodeConfig>},
    {"operations", optional,
     read_into<&NodeConfig::operations,
               read_named<std::map<string, OperationConfig>, read_operation>>},
};

void read_node(const Item& item, NodeConfig& node) {
  read_record("node", item, node_members, node);
  read_values(item.value, node, item.problems);
}

void read_nodes(const Item& item, BoardFile& file) {
  read_list<NodeConfig, read_node>(item, file.nodes);
  if (item.value.type == YamlType::list && item.value.elements.empty()) {
    item.problems.error(item.value.at, "nodes: expected at least one node");
  }
}

constexpr Member<BoardFile> file_members[] = {{"nodes", required, read_nodes}};

/// Reads the record once more, for its mistakes alone.
template <typename Record, Reader<Record> read>
bool is_readable(const YamlValue& source) {
  ProblemList reported_before{};
  Record unused{};
  read({"", source, reported_before}, unused);
  return !reported_before.has_errors();
}

}  // namespace

bool is_node_key(std::string_view key) { return find_member(node_members, key) != nullptr; }

bool is_readable_device(const YamlValue& source) {
  return is_readable<DeviceOdEntry, read_device>(source);
}

bool is_readable_pdo(const YamlValue& source) { return is_readable<PdoConfig, read_pdo>(source); }

bool is_readable_operation(const YamlValue& source) {
  return is_readable<OperationConfig, read_operation>(source);
}

BoardFile read_board(const YamlValue& root, ProblemList& problems) {
  BoardFile file;
  read_record("board file", {"", root, problems}, file_members, file);
  return file;
}

}  // namespace velmora_can_bridge

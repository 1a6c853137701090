// Every public record with one member named, or all that have no start value. Compiled as C++20 and
// as C++2b, where warnings are errors: no other member has to be named. That a record is missing
// here tells public_records_test.cpp.
#include <type_traits>

#include "all_public_headers.hpp"

namespace velmora_can_bridge {
namespace {

template <typename... Records>
constexpr bool are_aggregates(const Records&... /*records*/) {
  return (std::is_aggregate_v<Records> && ...);
}

}  // namespace

/// Whether all records below are aggregates.
bool designated_initialisers(const NodeConfig& node, const OperationConfig& operation,
                             std::ostream& stream);

bool designated_initialisers(const NodeConfig& node, const OperationConfig& operation,
                             std::ostream& stream) {
  return are_aggregates(
      // The core.
      BoardConfig{.pdos = {}}, DeviceOdEntry{.base_index = 0x6000},
      OperationConfig{.kind = "sdo_read"}, OperationKind{.kind = "sdo_read"},
      OperationResult{.ok = true}, PdoConfig{.number = 1}, PdoMapping{.index = 0x6040},
      Unexpected<int>{.error = 1},
      // Board files.
      BoardFile{.nodes = {}}, CountRange{.maximum = Count::of(1)}, LoadedBoard{.problems = {}},
      NamedCode{.name = "on"}, NodeConfig{.node_id = 1}, Problem{.line = 1},
      ValueAddress{.index = 0x6040}, ValueDescription{.unit = "V"},
      // The bus.
      BusError{.node_id = 1}, CanArrival{.lost = 1}, CanDelivery{.frame = {}}, CanFilter{.id = 1},
      CanFrame{.id = 1}, NodeEvent{.node_id = 1}, SdoTimes{.frame_timeout = {}},
      // Simulated nodes.
      Emergency{.error_code = 0x1000}, Fault{.node_id = 1}, FaultEffect{.fault = 1},
      FaultScriptProblem{.line = 1}, ObjectAddress{.index = 0x6040},
      ObjectEntry{.access = ObjectAccess::read_only}, PdoFrame{.length = 1},
      PdoCommunication{.number = 1}, HeartbeatConsumer{.node_id = 1},
      TransferScope{.sort = TransferSort::read},
      // What values mean.
      AnswerPart{.index = 0x6041}, PayloadLayout{.remark = "none"},
      PayloadUse{.node = node, .operation = operation}, PayloadValue{.name = "duty"},
      ValueReading{.words = "on"},
      // What frames mean.
      DecodedField{.bit_length = 1}, DecodedFrame{.node_id = 1},
      EmergencyContent{.error_register = 1}, HeartbeatContent{.has_changed = true},
      NmtContent{.command = 1}, ObjectName{.index = 0x6041}, PdoContent{.number = 1},
      SdoContent{.bytes = {}}, SdoContent::Object{.index = 0x6041}, SdoTrafficContent{.sdo = {}},
      // A board on a bus.
      BridgeSettings{.heartbeat_timeout = {}}, DeviceComparison{.notes = {}},
      Difference{.pdo = "RPDO 1"}, EventsLost{.count = 1}, ExplainedField{.before = {}},
      ExplainedMode{.after = 1}, ExplainedTransfer{.cob_id = 0x200}, Explanation{.node_id = 1},
      Gap{.what = "RPDO 1"}, OperationReport{.device = "led"}, RunOptions{.force = true},
      Transfer{.node_id = 1},
      // The program.
      CommandLineHost{.out = stream, .err = stream});
}

}  // namespace velmora_can_bridge

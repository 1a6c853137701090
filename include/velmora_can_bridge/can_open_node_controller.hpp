/// The operations of one CANopen node.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// Runs configured operations on one node, over a bus that it is given.
///
/// Every public member may be called from any thread, from several at once.
class CanOpenNodeController {
 public:
  /// Refers to all three arguments, copies none: they must outlive the controller.
  ///
  /// `node_id` is the CANopen node id, 1 to 127, read afresh at every bus call. `board` must not
  /// change while operations run. Temporaries do not compile.
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig& board);
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig& board) = delete;
  CanOpenNodeController(const std::uint8_t& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;
  CanOpenNodeController(const std::uint8_t&& node_id, CanOpenBackend& backend,
                        const BoardConfig&& board) = delete;

  CanOpenNodeController(const CanOpenNodeController&) = delete;
  CanOpenNodeController(CanOpenNodeController&&) = delete;
  CanOpenNodeController& operator=(const CanOpenNodeController&) = delete;
  CanOpenNodeController& operator=(CanOpenNodeController&&) = delete;
  ~CanOpenNodeController() = default;

  /// Runs the operation that `op.kind` names and returns its result.
  ///
  /// `device` is the name that kinds addressing a device look up in the board's `device_od_map`;
  /// the others ignore it. What `payload` holds depends on the kind, as docs/operations.md lists
  /// kind by kind with every message. Blocks for as long as the bus transfers take.
  ///
  /// Every failure is a result with `ok` false, empty `data` and the reason in `message`; the first
  /// refused check or transfer ends the operation, nothing done before it is undone and nothing is
  /// retried. An unknown kind answers "Unknown operation kind: " and the kind. Only exceptions of
  /// the standard library (memory) and of the backend pass through.
  OperationResult execute_configured_operation(const OperationConfig& op, const std::string& device,
                                               const std::vector<std::uint8_t>& payload);

  /// The board's entry of the device `device`, case-sensitive; null when there is none.
  ///
  /// The pointer stays valid while the board configuration lives. Does not allocate.
  const DeviceOdEntry* find_device_od(const std::string& device) const;

 private:
  OperationResult exec_sdo_write(const OperationConfig& op, const std::string& device,
                                 const std::vector<std::uint8_t>& payload);
  OperationResult exec_sdo_read(const OperationConfig& op, const std::string& device,
                                const std::vector<std::uint8_t>& payload);
  OperationResult exec_read_multi(const OperationConfig& op, const std::string& device,
                                  const std::vector<std::uint8_t>& payload);

  const std::uint8_t* node_id_;
  CanOpenBackend* backend_;
  const BoardConfig* board_;
};

}  // namespace velmora_can_bridge

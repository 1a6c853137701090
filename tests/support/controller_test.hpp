// What tests of operations share: one controller on a scripted bus.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/scripted_backend.hpp"
#include "support/test_path.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {

inline bool operator==(const OperationResult& left, const OperationResult& right) {
  return left.ok == right.ok && left.data == right.data && left.message == right.message;
}

inline void PrintTo(const OperationResult& result, std::ostream* out) {
  *out << (result.ok ? "ok" : "failed") << ", data " << testing::PrintToString(result.data)
       << ", message \"" << result.message << "\"";
}

inline OperationResult ok(std::string message, Bytes data = {}) {
  return {true, std::move(data), std::move(message)};
}

inline OperationResult failed(std::string message) { return {false, {}, std::move(message)}; }

/// Locks the images for a moment, in turn as an RPDO write does. Makes no bus call, as the board
/// has no such RPDO.
inline void touch_images(CanOpenNodeController& controller) {
  OperationConfig op;
  op.kind = "pdo_write";
  op.pdo_number = 251;
  controller.execute_configured_operation(op, "nobody", {});
}

/// Node 5 with an empty board. Tests fill `op` and `board`, script `backend`, call `run`.
class ControllerTest : public testing::Test {
 protected:
  OperationResult run(const Bytes& payload = {}, const std::string& device = "device") {
    return controller.execute_configured_operation(op, device, payload);
  }

  std::uint8_t node_id = 5;
  ScriptedBackend backend;
  TestPath path{backend};
  BoardConfig board;
  CanOpenNodeController controller{node_id, path.backend(), board};
  OperationConfig op;
};

}  // namespace velmora_can_bridge

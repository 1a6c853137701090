#include <cstddef>
#include <utility>

#include "dispatch/results.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

// Bytes of an entry that one expedited transfer brings at most; strings may have more.
constexpr std::size_t usual_entry_size = 4;

}  // namespace

OperationResult CanOpenNodeController::exec_read_multi(
    const OperationConfig& op, const std::string& /*device*/,
    const std::vector<std::uint8_t>& /*payload*/) {
  std::vector<std::uint8_t> joined;
  joined.reserve(op.sub_indices.size() * usual_entry_size);
  for (const std::uint8_t sub_index : op.sub_indices) {
    OperationResult piece = read_object(op.index, sub_index);
    if (!piece.ok) {
      return piece;
    }
    joined.insert(joined.end(), piece.data.begin(), piece.data.end());
  }
  return success("OK", std::move(joined));
}

}  // namespace velmora_can_bridge

/// How an operation went.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "velmora_can_bridge/values/answer_words.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One operation that was run, with all that is known of it.
struct OperationReport {
  std::string device{};
  std::string operation{};
  OperationResult result{};
  /// Why the last transfer of this very call failed, where the operation failed with it. No value
  /// when the operation succeeded, or when it was refused by a check of its own. Once a transfer
  /// was stopped it is that one: those behind it were not begun.
  std::optional<BusError> error{};
  /// Transfers of this call that failed although it went on, in order: objects that a refresh of an
  /// image could not read, whose bytes stayed as they were. Where that held the operation back,
  /// too.
  std::vector<BusError> tolerated{};
  /// Every transfer in order, failed ones included, where `Detail::transfers` was asked for.
  std::vector<Transfer> transfers{};
  /// What `result.data` says, object by object, as `velmora_can_bridge::answer_parts`.
  std::vector<AnswerPart> answer{};
  /// The same on one line, as `velmora_can_bridge::answer_words`: not escaped.
  std::string answer_words{};
};

/// How much a report tells.
enum class Detail : std::uint8_t { result, transfers };

/// How an operation is run.
struct RunOptions {
  Detail detail = Detail::result;
  /// Send also what carries fields that nobody knows, see `Bridge::run`.
  bool force = false;
};

}  // namespace velmora_can_bridge

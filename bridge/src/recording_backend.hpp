// The backend of a bridge's controllers: what a transfer does belongs to the call that makes it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "called_operation.hpp"
#include "known_fields.hpp"
#include "velmora_can_bridge/bridge/bridge.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

/// Collects what the transfers of one call come to. Lives on the stack of the call, whose thread
/// makes all of them; of several on one thread the innermost of the bridge counts.
class Bridge::CallRecord {
 public:
  CallRecord(const Bridge& bridge, Detail detail);
  /// Of an operation on the images of `node`.
  CallRecord(const Bridge& bridge, const RunOptions& options, Node& node,
             const CalledOperation& call);
  ~CallRecord();
  CallRecord(const CallRecord&) = delete;
  CallRecord(CallRecord&&) = delete;
  CallRecord& operator=(const CallRecord&) = delete;
  CallRecord& operator=(CallRecord&&) = delete;

  /// That of the bridge's call under way on this thread, or null.
  static CallRecord* current(const Bridge& bridge);

  /// Why a transfer that is about to begin must not, because of what it would carry; no value when
  /// it may. The node's images are forgotten then.
  std::optional<BusError> refusal(const Transfer& transfer);

  /// What the bus says of the transfer under way.
  void note(const BusError& error) { reported_ = error; }

  /// The reason of the transfer that has just failed.
  BusError take_reason();

  /// A transfer that has ended.
  void add(const Transfer& transfer);

  /// The operation has come to its end: moves into its report what there is to tell of its
  /// transfers.
  void fill(OperationReport& report, const CalledOperation& call);

  /// Why the last transfer failed; no value when it did not.
  const std::optional<BusError>& error() const { return error_; }

 private:
  struct RunningOperation {
    Node& node;
    ImageWatch images;
    bool is_over = false;
  };

  static CallRecord*& innermost();

  const Bridge* const bridge_;
  const Detail detail_;
  CallRecord* const outer_;
  std::optional<RunningOperation> running_;
  std::optional<BusError> reported_;
  std::optional<BusError> error_;
  std::vector<BusError> failures_;
  std::vector<Transfer> transfers_;
};

/// Passes transfers on to the bus of the bridge, tells its hooks and the call's record of them, and
/// refuses them after a stop.
class Bridge::RecordingBackend : public CanOpenBackend {
 public:
  explicit RecordingBackend(Bridge& bridge) : bridge_(&bridge) {}

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

 private:
  template <typename Call>
  bool make(Transfer& transfer, const Call& call);

  Bridge* const bridge_;
};

}  // namespace velmora_can_bridge

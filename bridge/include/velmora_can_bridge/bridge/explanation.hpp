/// What an operation would do.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/bus/can_frame.hpp"
#include "velmora_can_bridge/export.hpp"
#include "velmora_can_bridge/operation.hpp"
#include "velmora_can_bridge/traffic/object_name.hpp"
#include "velmora_can_bridge/traffic/traffic_decoder.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// One field of a frame, before the operation and after it.
struct ExplainedField {
  DecodedField before{};
  DecodedField after{};

  bool has_changed() const { return before.value != after.value; }
};

/// One transfer of the operation.
struct ExplainedTransfer {
  /// Reads were made, and tell what the node answered. Writes and frames were held back; they have
  /// an error only where no bus could carry them, where `run` would not send them because of a
  /// field that nobody knows, or where a read before them was stopped.
  Transfer transfer{};
  /// Of an SDO transfer: the object in words of the board, and what its value says.
  ObjectName object{};
  ValueReading reading{};
  /// Of a frame: its COB-ID, and the image before the operation's change. Empty when the frame
  /// could not be sent.
  std::uint16_t cob_id = 0;
  std::vector<std::uint8_t> image_before{};
  /// Of a frame: its fields in frame order, as `PdoContent::fields`; of all RPDO entries of its
  /// number, one after another.
  std::vector<ExplainedField> fields{};
};

/// The recorded mode of operation of the device (`CanOpenNodeController::motor_mode`).
struct ExplainedMode {
  std::uint8_t before = 0;
  std::uint8_t after = 0;
};

struct Explanation {
  std::string device{};
  std::string operation{};
  /// 0 when the board file does not hold device or operation.
  std::uint8_t node_id = 0;
  /// In order. Where a read failed, all behind it follows from that failure.
  std::vector<ExplainedTransfer> transfers{};
  /// Where the device is a drive.
  std::optional<ExplainedMode> mode{};
  /// What the operation would answer if every transfer that was held back succeeded.
  OperationResult result{};
  /// Why the last transfer failed, where `result` is a failure because of it. Once a read was
  /// stopped it is that one.
  std::optional<BusError> error{};
  /// The frames that the operation would send, in order: SDO requests with all their segments, and
  /// RPDOs. Of an upload that has failed only the first request.
  std::vector<CanFrame> frames{};
};

/// For people: several lines, each with its end. What a terminal would obey or hide is escaped.
std::string explanation_text(const Explanation& explanation);

/// As a JSON object on one line. docs/command-line.md tells its members.
std::string explanation_json(const Explanation& explanation);

/// The frames as `candump -L` writes them, one a line: canplayer sends them, and the last column of
/// each is an argument of cansend. 10 ms lie between two frames.
std::string explanation_frames(const Explanation& explanation, const std::string& interface);

}  // namespace velmora_can_bridge

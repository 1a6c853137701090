/// The one way in which a controller reaches the bus.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "velmora_can_bridge/export.hpp"

namespace velmora_can_bridge VELMORA_CAN_BRIDGE_EXPORT {

/// What a bus implementation provides (CiA 301: SDO client, RPDO producer).
///
/// Operations block until the transfer has ended. False means that the operation that asked has
/// failed; it is never tried again by the controller, so any retry belongs in the implementation.
/// All of it must be safe to call from every thread that runs operations, from several at once.
/// None may call back into the controller, whose lock may be held, but for `forget_rpdo_shadows`,
/// which waits for nobody: a bus that refuses to send calls it before it answers, where what the
/// image holds is not to be sent by others either. An exception passes through the controller to
/// the caller of the operation.
class CanOpenBackend {
 public:
  virtual ~CanOpenBackend() = default;

  /// Uploads the object `index`/`sub_index` of node `node_id` (CiA 301, 7.2.4.3.5 and 7.2.4.3.6).
  ///
  /// `data` arrives empty and receives the object's bytes in bus order (little-endian values).
  /// Returns true when the upload succeeded, any number of bytes, none included. On false what
  /// `data` holds is ignored.
  virtual bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                        std::vector<std::uint8_t>& data) = 0;

  /// Downloads `data`, which may be empty, to the object `index`/`sub_index` of node `node_id`
  /// (CiA 301, 7.2.4.3.3 and 7.2.4.3.4).
  ///
  /// Returns true when the node confirmed the download.
  virtual bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                         const std::vector<std::uint8_t>& data) = 0;

  /// Sends RPDO number `rpdo` of node `node_id` with the first `length` bytes, 0 to 8, of `data`.
  ///
  /// Returns true when the frame was handed to the bus; nothing confirms that the node took it.
  virtual bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo,
                         const std::array<std::uint8_t, 8>& data, std::uint8_t length) = 0;

 protected:
  // Copied and moved only as part of a derived class, so that no implementation is ever sliced.
  CanOpenBackend() = default;
  CanOpenBackend(const CanOpenBackend&) = default;
  CanOpenBackend(CanOpenBackend&&) = default;
  CanOpenBackend& operator=(const CanOpenBackend&) = default;
  CanOpenBackend& operator=(CanOpenBackend&&) = default;
};

}  // namespace velmora_can_bridge

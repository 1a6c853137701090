// What operations do with the images of RPDOs, as pure functions of the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "called_operation.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bridge/transfer.hpp"

namespace velmora_can_bridge {

/// A field of an RPDO's frame that a load reads: it owns whole bytes and is no padding.
struct ImageField {
  /// In the board configuration.
  const PdoMapping* mapping = nullptr;
  /// The bytes of the frame that it owns, at least one.
  std::size_t offset = 0;
  std::size_t length = 0;
};

/// The fields of all RPDO entries of that number, in the order in which a load reads them.
std::vector<ImageField> image_fields(const BoardConfig& board, std::uint8_t rpdo);

/// Which image an operation loads, if it loads one.
struct ImageLoad {
  std::uint8_t rpdo = 0;
  /// It is loaded in any case, and goes on whatever the node answers.
  bool is_refresh = false;
};

/// No value for a call that never loads an image. `mode` is the recorded mode of operation of the
/// device.
std::optional<ImageLoad> image_load(const CalledOperation& call, std::uint8_t mode);

/// Which fields of `image_fields` have all their bytes in `frame` from the call itself, whatever
/// the image held before. A change of bits writes none.
std::vector<bool> written_whole(const CalledOperation& call, std::uint8_t mode,
                                const Transfer& frame);

/// Whether the images repeat this write of the call, once the node has accepted it.
bool is_mirrored(const CalledOperation& call, const Transfer& write);

/// The mapping whose byte `write` of a "pdo_bit_patch" takes from the image; null for every other
/// transfer.
const PdoMapping* written_from_image(const CalledOperation& call, const Transfer& write);

}  // namespace velmora_can_bridge

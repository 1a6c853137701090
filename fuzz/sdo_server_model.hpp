// What an SDO server must answer, and what its objects must hold afterwards.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "velmora_can_bridge/bus/can_frame.hpp"

namespace velmora_can_bridge {

/// An object of the server, as the model sees it.
struct ModelObject {
  std::uint16_t index;
  std::uint8_t sub_index;
  bool readable;
  bool writable;
  /// Bytes that it takes.
  std::size_t least;
  std::size_t most;
  std::vector<std::uint8_t> bytes;
};

/// Follows a server request by request. A slow and plain second version of the transfers in
/// CiA 301, 7.2.4.3, and of what sdo_server.hpp says beyond them: it shares no code with the server
/// and its object dictionary, and has its own numbers for commands and abort codes.
class SdoServerModel {
 public:
  using Answer = std::optional<std::array<std::uint8_t, 8>>;

  /// `most_bytes` is what a download may bring.
  SdoServerModel(std::vector<ModelObject> objects, std::size_t most_bytes);

  /// The bytes of the answer to a request; none when the server has to keep silent.
  Answer answer(const CanFrame& request);

  /// As they stand after the requests so far.
  const std::vector<ModelObject>& objects() const { return objects_; }

 private:
  using Bytes = std::vector<std::uint8_t>;
  /// 0 when there is nothing to refuse.
  using AbortCode = std::uint32_t;

  /// The second to fourth byte of a frame, as they stand there.
  using Multiplexer = std::array<std::uint8_t, 3>;

  enum class Phase { idle, uploading, downloading };

  Answer begin_upload(const Multiplexer& at);
  Answer begin_download(const CanFrame& request, const Multiplexer& at);
  Answer next_of_upload(bool toggle);
  Answer next_of_download(const CanFrame& request);
  Answer expedited_download(const Bytes& sent, const Multiplexer& at);
  Answer unsized_download(Bytes sent, const Multiplexer& at);
  Answer last_of_download();

  ModelObject* object(const Multiplexer& at);
  AbortCode absence(const Multiplexer& at) const;
  AbortCode store(const Multiplexer& at, const Bytes& bytes);
  Answer abort_transfer(AbortCode code);

  std::vector<ModelObject> objects_;
  const std::size_t most_bytes_;

  Phase phase_ = Phase::idle;
  Multiplexer at_{};
  /// Those that are still to be uploaded, or that a download has brought.
  Bytes bytes_;
  std::optional<std::size_t> announced_;
  bool toggle_ = false;
};

}  // namespace velmora_can_bridge

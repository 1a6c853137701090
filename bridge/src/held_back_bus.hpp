// A bus that reads and holds everything else back.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "known_fields.hpp"
#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/expected.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"

namespace velmora_can_bridge {

/// Reads are made on another bus. Whatever the node would get is sent on a bus of its own, where
/// somebody takes every write; so the frames are those that a real bus would carry. One thread.
class HeldBackBus : public CanOpenBackend {
 public:
  /// Uploads for real.
  using Read = std::function<Expected<std::vector<std::uint8_t>, BusError>(std::uint16_t index,
                                                                           std::uint8_t sub_index)>;

  HeldBackBus(const NodeConfig& node, Read read);

  /// From now on transfers are refused as `images` says, which outlives their call and follows
  /// them.
  void watch(ImageWatch& images) { images_ = &images; }

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

  /// All that was asked for, in order; reads with what was read.
  const std::vector<Transfer>& transfers() const { return transfers_; }

  /// The frames that belong to them, those of the node left out.
  const std::vector<CanFrame>& frames() const { return frames_; }

  /// Why a read was stopped first; no value when none was. What follows it is stopped, too.
  const std::optional<BusError>& stop() const { return stop_; }

 private:
  template <typename Send>
  bool add(Transfer transfer, const Send& send);
  void keep(Transfer transfer);
  void take(const CanFrame& frame, std::vector<CanFrame>& answers);

  const std::uint8_t node_id_;
  const Read read_;
  ImageWatch* images_ = nullptr;
  std::vector<Transfer> transfers_;
  std::vector<CanFrame> frames_;
  std::optional<BusError> stop_;
  // What the read under way has brought; no value when it has failed.
  std::optional<std::vector<std::uint8_t>> read_data_;
  SdoServer server_;
  InProcessBus bus_{BusTime::simulated};
  const std::unique_ptr<CanEndpoint> node_;
  CanBusBackend backend_{bus_};
};

/// A bus that knows what was read, and takes one frame.
class ReplayedBus : public CanOpenBackend {
 public:
  /// Reads are answered from the reads among `transfers`, which outlive the bus.
  explicit ReplayedBus(const std::vector<Transfer>& transfers) : transfers_(&transfers) {}

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override;
  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override;
  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override;

  /// Whether anything was read.
  bool has_read() const { return has_read_; }
  /// The frame; no value when none came.
  const std::optional<std::vector<std::uint8_t>>& frame() const { return frame_; }

 private:
  const std::vector<Transfer>* const transfers_;
  bool has_read_ = false;
  std::optional<std::vector<std::uint8_t>> frame_;
};

}  // namespace velmora_can_bridge

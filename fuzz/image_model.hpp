// What the images of a controller must hold, told from its bus calls alone.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz_bus.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/operation.hpp"

namespace velmora_can_bridge {

/// Follows the images of one controller, operation by operation, and stops where a bus call shows
/// another image. A slow and plain second version of docs/rpdo-shadow.md: it shares no code with
/// the controller.
class ImageModel {
 public:
  /// Refers to the board.
  explicit ImageModel(const BoardConfig& board);

  /// The controller has been told to forget its images.
  void forget();

  /// Follows one operation by its bus calls. `mode` is the mode of the device before it, `message`
  /// the answer; empty when an exception of the bus ended the operation.
  void follow(const OperationConfig& op, const std::string& device,
              const std::vector<std::uint8_t>& payload, std::uint8_t mode,
              const std::string& message, const std::vector<BusCall>& calls);

  /// RPDOs whose image is loaded.
  std::vector<std::uint8_t> loaded() const;

 private:
  using Bytes = std::vector<std::uint8_t>;
  using Calls = std::vector<BusCall>;

  struct Image {
    std::array<std::uint8_t, 8> frame{};
    std::uint8_t length = 0;
    bool loaded = false;
    /// The bytes that drive and claw operations have mirrored since it was forgotten.
    std::set<std::size_t> mirrored;
  };

  /// A mapping of an RPDO and the byte of the frame at which it begins.
  struct Field {
    const PdoMapping* mapping;
    std::uint8_t rpdo;
    /// In the first entry of its number: the one in which names are looked up.
    bool in_first_entry;
    std::size_t begin;

    std::size_t width() const { return mapping->bit_length / 8U; }
  };

  /// The bits of one byte of the frame that an operation changes.
  struct Change {
    std::size_t position;
    std::uint8_t mask;
    std::uint8_t value;
  };

  /// What an operation writes through an image; no RPDO when it takes another way or none.
  struct Plan {
    std::optional<std::uint8_t> rpdo;
    std::vector<Change> changes;
    bool refresh = false;
  };

  template <typename Wanted>
  const Field* first(const Wanted& wanted) const;
  const Field* by_name(std::uint8_t rpdo, const std::string& name) const;
  const Field* by_object(std::uint8_t rpdo, std::uint16_t index, std::uint8_t sub_index) const;
  std::uint8_t rpdo_of(std::uint16_t index) const;
  std::uint8_t resolved(const OperationConfig& op) const;

  Plan plan(const OperationConfig& op, const std::string& device, const Bytes& payload,
            std::uint8_t mode) const;
  Plan plan_fields(const OperationConfig& op, const Bytes& payload) const;
  Plan plan_mask(const OperationConfig& op, const Bytes& payload) const;
  Plan plan_bit(const OperationConfig& op, const Bytes& payload) const;
  Plan plan_io(const OperationConfig& op, const std::string& device, const Bytes& payload) const;
  Plan plan_pump(const OperationConfig& op, const Bytes& payload) const;
  Plan plan_target(const OperationConfig& op, const std::string& device, const Bytes& payload,
                   std::uint8_t mode) const;
  std::vector<Change> changes_of_fields(const OperationConfig& op, std::uint8_t rpdo,
                                        const Bytes& payload) const;

  void follow_plan(const Plan& plan, const std::string& message, const Calls& calls);
  void follow_mirrors(const OperationConfig& op, const Calls& calls);
  /// Whether all reads of the load are there and the load holds.
  bool load(std::uint8_t rpdo, const Calls& calls, bool best_effort);
  std::uint8_t length_of(std::uint8_t rpdo) const;
  void apply(std::uint8_t rpdo, const std::vector<Change>& changes);

  const BoardConfig* board_;
  std::vector<Field> fields_;
  std::map<std::uint8_t, Image> images_;
};

}  // namespace velmora_can_bridge

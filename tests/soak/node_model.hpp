// What a node may hold, and whether something disturbs it.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "soak_board.hpp"
#include "soak_settings.hpp"
#include "velmora_can_bridge/simulator/bus_node.hpp"

namespace velmora_can_bridge::soak {

/// All values that an object may hold: one where nothing has disturbed the node, otherwise each
/// that was written since. One thread at a time.
class Cell {
 public:
  /// A node starts with `start`.
  explicit Cell(const Bytes& start) : start_(start) { confirm(start); }

  /// `value` is on its way to the node.
  void begin_write(const Bytes& value);
  /// It holds this and nothing else.
  void confirm(const Bytes& value);
  /// As `begin_write`, for all that another one may hold.
  void begin_write(const Cell& other);

  bool may_hold(const Bytes& value, bool has_restarted) const;

  /// For people.
  std::string text() const;

 private:
  // Of most cells: what it held, and what is written.
  static constexpr std::size_t usual_values = 2;

  Bytes start_;
  std::vector<Bytes> possible_;
};

std::string text_of(const Bytes& bytes);

/// Where the value of a cell stands.
struct CellPlace {
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
};

/// The objects of a node. Each belongs to a thread; those of `bits` hold 0 or 1.
struct Cells {
  template <typename Each>
  using PerThread = std::array<Each, threads>;

  std::vector<Cell> words = std::vector<Cell>(threads, Cell(Bytes(4)));
  std::vector<Cell> texts = std::vector<Cell>(threads, Cell(start_text()));
  std::vector<Cell> fields = std::vector<Cell>(threads, Cell(Bytes(2)));
  std::vector<Cell> pumps = std::vector<Cell>(threads, Cell(Bytes(2)));
  std::vector<Cell> outputs = std::vector<Cell>(threads, Cell(Bytes(1)));
  std::vector<Cell> flags = std::vector<Cell>(threads, Cell(Bytes(1)));
  Cell color{Bytes(3)};
  Cell mode{Bytes(1)};
  Cell period{Bytes(2)};
  Cell controlword{Bytes(2)};
  /// The controlword in the image of the RPDO.
  Cell image_controlword{Bytes(2)};
  Cell velocity{Bytes(4)};
  Cell position{Bytes(4)};
  Cell torque{Bytes(2)};
  Cell drive_mode{Bytes(1)};
  Cell ramp{Bytes(4)};
};

/// A node, its model, and what is known of its troubles.
class SoakNode {
 public:
  SoakNode(std::uint8_t node_id, const BoardConfig& board, std::uint32_t first_sequence);

  /// What one operation sees of the troubles.
  struct Moment {
    std::uint64_t troubles = 0;
    /// Nothing has disturbed the node since its model was made sure of.
    bool is_sure = false;
  };
  Moment moment() const;
  /// Nothing has disturbed the node since that moment, and it was sure.
  bool is_sure_since(const Moment& moment) const;
  /// Since when the model is sure; no value when it is not.
  std::optional<Time> sure_since() const;

  enum class Harm : std::uint8_t {
    /// To operations, if there are any meanwhile.
    in_use,
    /// To frames that may be on their way.
    any,
    /// The node may hold its start values afterwards.
    restart,
  };
  /// Something disturbs the node from now on.
  void begin_trouble(Harm harm);
  /// It has ended; what it has left is over at `quiet`.
  void end_trouble(Time quiet);
  bool is_troubled() const;
  /// Its model is to be made sure of, and can be.
  bool can_settle(Time now) const;
  /// How long it could have been settled already.
  std::chrono::nanoseconds unsettled(Time now) const;
  /// The model is sure, if nothing has disturbed the node since `begun`.
  bool settle(const Moment& begun);
  bool has_restarted() const { return has_restarted_; }
  /// An operation has met the trouble.
  void note_use() { needs_images_ = true; }
  /// Images and node may differ.
  bool needs_images() const { return needs_images_; }

  const std::uint8_t id;
  SimulatedBusNode node;

  /// Held by operations, shared; alone by who makes sure of the model.
  std::shared_mutex use;
  /// Each cell belongs to its thread while `use` is shared.
  Cells cells;
  /// The last number that the thread has written here.
  std::array<std::uint32_t, threads> sequences{};

  /// SDO transfers that have begun and have ended.
  std::atomic<std::uint32_t> transfers_begun{0};
  std::atomic<std::uint32_t> transfers_ended{0};

 private:
  // Guards all below.
  mutable std::mutex mutex_;
  std::uint64_t troubles_ = 0;
  unsigned active_ = 0;
  bool is_sure_ = false;
  Time sure_since_{};
  Time quiet_ = Clock::now();
  std::atomic<bool> has_restarted_{false};
  std::atomic<bool> needs_images_{false};
};

}  // namespace velmora_can_bridge::soak

// Boards, operations and calls of them by chance.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "board_on_bus.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {

/// Where a board comes from.
enum class BoardSource : std::uint8_t {
  /// Anything that a board file may hold, and operations with every member set.
  arbitrary,
  /// RPDOs of fields by chance, drives among them, and operations of all kinds on these.
  mapped,
  /// That of `every_variant_file`.
  every_operation,
  /// The board file of the examples.
  example,
};

void PrintTo(BoardSource source, std::ostream* out);

/// What happens on a bus before an operation is called, and the call.
struct RandomStep {
  enum class Event : std::uint8_t {
    nothing,
    /// The bridge resets all nodes and starts them again.
    reset,
    /// The node says that it has started.
    boot_up,
    /// A mapped object is written past the images.
    write,
  };

  Event event = Event::nothing;
  /// Of a write.
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  std::vector<std::uint8_t> data;

  std::chrono::milliseconds pause{0};

  std::string device;
  std::string operation;
  std::vector<std::uint8_t> payload;
};

/// For people, on one line.
std::string step_text(const RandomStep& step);

/// Lets happen what comes before the call.
void prepare(BoardOnBus& board, const RandomStep& step);

/// A board with one node, and steps on it.
class RandomBoard {
 public:
  RandomBoard(std::mt19937& random, BoardSource source);

  const BoardFile& file() const { return file_; }
  const NodeConfig& node() const { return file_.nodes.front(); }

  /// The operation that sends the RPDO with its image as it stands; with `refresh` as it was just
  /// loaded from the node.
  static std::string unchanging(std::uint8_t rpdo, bool refresh);

  RandomStep step();

 private:
  /// An operation that steps call, and arguments that suit it.
  struct Callable {
    std::string operation;
    std::string device;
    std::vector<std::uint8_t> payload;
  };

  void make_arbitrary();
  void make_mapped();
  PdoConfig mapped_rpdo(std::uint8_t number);
  OperationConfig mapped_operation(std::string_view kind);
  std::vector<std::uint8_t> suitable_payload(const OperationConfig& op);
  void make_every_operation();
  void make_example();
  void add_unchanging();
  void add(const std::string& name, const OperationConfig& op, const std::string& device,
           const std::vector<std::uint8_t>& payload);

  std::size_t below(std::size_t limit);
  bool one_in(std::size_t chances) { return below(chances) == 0; }
  std::vector<std::uint8_t> bytes(std::size_t count);
  std::vector<std::uint8_t> payload();

  std::mt19937* random_;
  BoardFile file_;
  // Called in turn.
  std::vector<Callable> callables_;
  std::size_t next_ = 0;
  std::vector<std::string> devices_;
  std::vector<PdoMapping> mappings_;
};

}  // namespace velmora_can_bridge

// A thread that runs operations.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>

#include "world.hpp"

namespace velmora_can_bridge::soak {

/// Runs mixed operations on all nodes and judges each: how it ended, how long it took, and what it
/// has read. Writes only what belongs to its thread.
class Worker {
 public:
  Worker(World& world, std::size_t thread, std::uint32_t seed);

  /// Until the phase `end`.
  void run();

 private:
  using Operation = void (Worker::*)(SoakNode& node);
  struct Task;

  struct Called {
    OperationReport report;
    /// When it began.
    SoakNode::Moment moment;
    /// Nothing has disturbed the node meanwhile.
    bool is_sure = false;
  };
  /// Takes over what an earlier call has written, when it is known to be on the node.
  using Confirm = std::function<void()>;
  struct Call {
    const char* device = "io";
    std::string operation{};
    Bytes payload{};
    /// SDO transfers at most, or an RPDO's load and frame.
    unsigned transfers = 1;
  };

  void one_operation();
  SoakNode& pick();
  SoakNode& pick(Owned owned);
  void settle_round();
  bool settle(SoakNode& node);
  bool refresh_images(SoakNode& node);
  void check_device(SoakNode& node);
  void check_drive(SoakNode& node);
  void confirm_device(SoakNode& node, Cell& cell, CellPlace place);
  void confirm_bits(SoakNode& node, std::vector<Cell>& bits, std::uint8_t sub_index);

  Called call(SoakNode& node, const Call& call);
  void judge(SoakNode& node, const Call& call, const Called& called, bool is_excused);
  void judge_time(SoakNode& node, const Call& call, std::chrono::nanoseconds taken);
  Called write(SoakNode& node, Cell& cell, const Bytes& value, const Call& call);
  static void confirm(const SoakNode& node, const Called& written, Cell& cell, const Bytes& value);
  Called read(SoakNode& node, const Cell& cell, const Call& call, const Confirm& confirm);
  void check_value(const SoakNode& node, const Cell& cell, const Bytes& value,
                   const std::string& name);
  void wrong(const SoakNode& node, const std::string& what);

  void write_word(SoakNode& node);
  void write_text(SoakNode& node);
  void read_words(SoakNode& node);
  void write_field(SoakNode& node);
  void write_io(SoakNode& node);
  void write_pump(SoakNode& node);
  void patch_outputs(SoakNode& node);
  void patch_bit(SoakNode& node);
  void read_bits(SoakNode& node) { read_bits(node, {}); }
  void read_bits(SoakNode& node, const Confirm& confirm);
  void command_led(SoakNode& node);
  void set_led(SoakNode& node);
  void set_color(SoakNode& node);
  void set_led_mode(SoakNode& node);
  void read_led(SoakNode& node, const Confirm& confirm);
  void command_drive(SoakNode& node);
  void enable(SoakNode& node);
  void disable(SoakNode& node);
  void quick_stop(SoakNode& node);
  void set_drive_mode(SoakNode& node);
  void set_target(SoakNode& node);
  void set_ramp(SoakNode& node);
  void write_drive(SoakNode& node, Cell& cell, const Bytes& value, const Call& call,
                   std::uint8_t offset);
  void read_drive(SoakNode& node, const Cell& cell, std::uint8_t offset, const Confirm& confirm);
  void command_claw(SoakNode& node);

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  std::uint32_t next_number(SoakNode& node, unsigned bits) const;
  std::string own(const char* operation) const { return operation + std::to_string(sub_index_); }

  World* const world_;
  const std::size_t thread_;
  const std::uint8_t sub_index_;
  std::mt19937 random_;
};

}  // namespace velmora_can_bridge::soak

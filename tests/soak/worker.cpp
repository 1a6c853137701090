#include "worker.hpp"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <thread>
#include <utility>

namespace velmora_can_bridge::soak {
namespace {

// An operation on a node in trouble takes long: one of so many is run.
constexpr std::uint32_t unlikely = 20;

/// A signed 16-bit value in `size` bytes.
Bytes extended(std::uint32_t value, std::size_t size) {
  return bytes_of((value & 0x8000U) == 0 ? value : value | 0xFFFF0000U, size);
}

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bytes part(const Bytes& bytes, std::size_t first, std::size_t size) {
  const std::size_t begin = std::min(first, bytes.size());
  const std::size_t end = std::min(first + size, bytes.size());
  return {bytes.begin() + static_cast<std::ptrdiff_t>(begin),
          bytes.begin() + static_cast<std::ptrdiff_t>(end)};
}

Bytes bit_of(std::uint8_t byte, std::size_t bit) {
  return {static_cast<std::uint8_t>(byte >> bit & 1U)};
}

}  // namespace

Worker::Worker(World& world, std::size_t thread, std::uint32_t seed)
    : world_(&world), thread_(thread), sub_index_(sub_index_of(thread)), random_(seed) {}

void Worker::run() {
  unsigned round = 0;
  while (world_->phase != Phase::end) {
    if (world_->phase == Phase::run) {
      one_operation();
    } else if (round != world_->round) {
      round = world_->round;
      settle_round();
    } else {
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
}

struct Worker::Task {
  Operation operation = nullptr;
  /// Runs only where this thread owns that.
  std::optional<Owned> owned{};
};

void Worker::one_operation() {
  static constexpr Task tasks[] = {{&Worker::write_word},
                                   {&Worker::write_text},
                                   {&Worker::read_words},
                                   {&Worker::write_field},
                                   {&Worker::write_field},
                                   {&Worker::write_io},
                                   {&Worker::write_pump},
                                   {&Worker::patch_outputs},
                                   {&Worker::patch_bit},
                                   {&Worker::read_bits},
                                   {&Worker::command_led, Owned::led},
                                   {&Worker::command_drive, Owned::drive},
                                   {&Worker::command_drive, Owned::drive},
                                   {&Worker::command_claw, Owned::claw}};
  const Task& task = tasks[below(std::size(tasks))];
  SoakNode& node = task.owned ? pick(*task.owned) : pick();
  if (node.can_settle(Clock::now())) {
    settle(node);
  } else if (!node.is_troubled() || below(unlikely) == 0) {
    const std::shared_lock<std::shared_mutex> lock(node.use, std::try_to_lock);
    if (lock) {
      (this->*task.operation)(node);
    }
  }
}

/// Half of the time where all others go.
SoakNode& Worker::pick() {
  const std::uint32_t position = below(2) == 0 ? world_->crowded_node - 1U : below(nodes);
  return *world_->nodes.at(position);
}

/// One of this thread.
SoakNode& Worker::pick(Owned owned) {
  std::uint8_t node_id = 0;
  do {
    node_id = static_cast<std::uint8_t>(drive_interval * (1 + below(nodes / drive_interval)));
  } while (owner(node_id, owned) != thread_);
  return *world_->nodes.at(node_id - 1U);
}

/// This thread's share of the nodes.
void Worker::settle_round() {
  for (std::size_t position = thread_; position < nodes; position += threads) {
    SoakNode& node = *world_->nodes.at(position);
    while (world_->phase == Phase::settle && !settle(node)) {
      std::this_thread::sleep_for(milliseconds(20));
    }
  }
  ++world_->waiting_threads;
}

/// Waits until what a trouble has left is over; then brings images and node into agreement and
/// looks what the node holds.
bool Worker::settle(SoakNode& node) {
  const std::unique_lock<std::shared_mutex> lock(node.use, std::try_to_lock);
  const Time now = Clock::now();
  if (!lock || (node.is_troubled() && !node.can_settle(now))) {
    return false;
  }
  const SoakNode::Moment begun = node.moment();
  if (begun.is_sure) {
    const Cell image_controlword = node.cells.image_controlword;
    check_device(node);
    node.cells.image_controlword = image_controlword;
    return node.is_sure_since(begun);
  }
  const auto unsettled = node.unsettled(now);
  world_->report.longest_recovery.note(unsettled);
  if (unsettled > (world_->pace.frame_timeout + world_->pace.quarantine) * 40) {
    wrong(node, "does not come back");
  }
  const bool has_images =
      !node.needs_images() ||
      (!world_->bridge.send(NmtCommand::start, node.id) && refresh_images(node));
  if (!has_images) {
    return false;
  }
  if (!world_->bridge.read_object(node.id, word_object, 1)) {
    return false;  // which came after all frames
  }
  check_device(node);
  ++world_->report.settled;
  return node.settle(begun);
}

bool Worker::refresh_images(SoakNode& node) {
  for (std::uint8_t rpdo = 1; rpdo <= rpdos; ++rpdo) {
    if (rpdo == drive_rpdo && !has_drive(node.id)) {
      continue;
    }
    const Called refreshed = call(node, {"io", "refresh_" + std::to_string(rpdo), {}, 5});
    if (!refreshed.report.result.ok || !refreshed.report.tolerated.empty()) {
      return false;
    }
  }
  return true;
}

void Worker::check_device(SoakNode& node) {
  Cells& cells = node.cells;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    const std::uint8_t sub_index = sub_index_of(thread);
    confirm_device(node, cells.words.at(thread), {word_object, sub_index});
    confirm_device(node, cells.texts.at(thread), {text_object, sub_index});
    confirm_device(node, cells.fields.at(thread), {field_object, sub_index});
    confirm_device(node, cells.pumps.at(thread), {pump_object, sub_index});
  }
  confirm_bits(node, cells.outputs, 1);
  confirm_bits(node, cells.flags, 2);
  confirm_device(node, cells.color, {led_object, 1});
  confirm_device(node, cells.mode, {led_object, 2});
  confirm_device(node, cells.period, {led_object, 3});
  if (has_drive(node.id)) {
    check_drive(node);
  }
}

void Worker::check_drive(SoakNode& node) {
  Cells& cells = node.cells;
  confirm_device(node, cells.controlword, {drive_base, 0});
  cells.image_controlword = cells.controlword;
  confirm_device(node, cells.velocity, {drive_base + 0xBF, 0});
  confirm_device(node, cells.position, {drive_base + 0x3A, 0});
  confirm_device(node, cells.torque, {drive_base + 0x31, 0});
  confirm_device(node, cells.drive_mode, {drive_base + 0x20, 0});
  confirm_device(node, cells.ramp, {drive_base + 0x43, 0});
}

void Worker::confirm_device(SoakNode& node, Cell& cell, CellPlace place) {
  const Bytes value =
      node.node.device().object_value(place.index, place.sub_index).value_or(Bytes());
  check_value(node, cell, value,
              "device's object " +
                  text_of({static_cast<std::uint8_t>(place.index >> 8U),
                           static_cast<std::uint8_t>(place.index & 0xFFU), place.sub_index}));
  cell.confirm(value);
}

void Worker::confirm_bits(SoakNode& node, std::vector<Cell>& bits, std::uint8_t sub_index) {
  const Bytes byte = node.node.device().object_value(bits_object, sub_index).value_or(Bytes(1));
  for (std::size_t thread = 0; thread < threads; ++thread) {
    const Bytes bit = bit_of(byte.front(), thread);
    check_value(node, bits.at(thread), bit, "device's bit " + std::to_string(thread));
    bits.at(thread).confirm(bit);
  }
}

Worker::Called Worker::call(SoakNode& node, const Call& call) {
  const SoakNode::Moment moment = node.moment();
  const Time begun = Clock::now();
  Called called{world_->bridge.run(device_of(call.device, node.id), call.operation, call.payload),
                moment};
  judge_time(node, call, Clock::now() - begun);
  called.is_sure = node.is_sure_since(moment);
  if (!called.is_sure) {
    node.note_use();
  }
  judge(node, call, called, called.is_sure && world_->pulse.has_stalled_since(begun));
  return called;
}

/// A machine that has let the nodes wait for long is a trouble, too.
void Worker::judge(SoakNode& node, const Call& call, const Called& called, bool is_excused) {
  const OperationResult& result = called.report.result;
  const std::string& kind = world_->bridge.board().nodes.front().operations.at(call.operation).kind;
  if (!result.ok && is_excused) {
    ++world_->report.stalls;
    node.begin_trouble(SoakNode::Harm::any);
    node.end_trouble(Clock::now() + world_->pace.longest_delay * 2);
  }
  const bool is_failure = !result.ok && called.is_sure && !is_excused;
  world_->report.count(kind, result.ok    ? Outcome::ok
                             : is_failure ? Outcome::failed
                                          : Outcome::failed_in_trouble);
  if (is_failure) {
    wrong(node, call.operation + " failed although nothing disturbed the node: " + result.message +
                    (called.report.error ? ": " + bus_error_text(*called.report.error) : ""));
  }
  if (result.message.empty() || (!result.ok && !result.data.empty())) {
    wrong(node, call.operation + " answers no message, or data with a failure");
  }
}

/// docs/bus.md: transfers with one node take turns, and a load of an image ends after two time-outs
/// and a quarantine; each of the other threads may be ahead with one. An urgent transfer waits for
/// the one under way alone.
void Worker::judge_time(SoakNode& node, const Call& call, std::chrono::nanoseconds taken) {
  const Pace& pace = world_->pace;
  const milliseconds machine = pace.frame_timeout * 10;
  const bool is_urgent = call.operation == "quick_stop";
  const milliseconds bound =
      machine + (is_urgent ? pace.times().transfer_timeout + pace.frame_timeout
                           : (pace.frame_timeout * 2 + pace.quarantine) *
                                 static_cast<int>(threads * call.transfers));
  (is_urgent ? world_->report.longest_urgent : world_->report.longest_operation).note(taken);
  if (taken > bound) {
    wrong(node, call.operation + " took " +
                    std::to_string(std::chrono::duration_cast<milliseconds>(taken).count()) +
                    " ms, longer than " + std::to_string(bound.count()));
  }
}

Worker::Called Worker::write(SoakNode& node, Cell& cell, const Bytes& value, const Call& call) {
  cell.begin_write(value);
  return this->call(node, call);
}

/// An RPDO is on its way when its operation has ended: only an answer to a later request tells that
/// nothing has happened to it.
void Worker::confirm(const SoakNode& node, const Called& written, Cell& cell, const Bytes& value) {
  if (written.report.result.ok && node.is_sure_since(written.moment)) {
    cell.confirm(value);
  }
}

Worker::Called Worker::read(SoakNode& node, const Cell& cell, const Call& call,
                            const Confirm& confirm) {
  Called called = this->call(node, call);
  if (called.report.result.ok) {
    confirm();
    check_value(node, cell, called.report.result.data, call.operation);
  }
  return called;
}

void Worker::check_value(const SoakNode& node, const Cell& cell, const Bytes& value,
                         const std::string& name) {
  ++world_->report.values_checked;
  if (!cell.may_hold(value, node.has_restarted())) {
    wrong(node, name + " is " + text_of(value) + ", and can only be " + cell.text());
  }
}

void Worker::wrong(const SoakNode& node, const std::string& what) {
  world_->report.problem("thread " + std::to_string(thread_ + 1) + ", node " +
                         std::to_string(node.id) + (node.is_troubled() ? " in trouble: " : ": ") +
                         what);
}

void Worker::write_word(SoakNode& node) {
  const Bytes value = bytes_of(next_number(node, 32), 4);
  Cell& cell = node.cells.words.at(thread_);
  const Called written =
      write(node, cell, value, {"io", "write_word", joined({sub_index_}, value)});
  read(node, cell, {"io", own("read_word_")}, [&] { confirm(node, written, cell, value); });
}

/// Segmented, or expedited where it is short.
void Worker::write_text(SoakNode& node) {
  Bytes value;
  const std::size_t size = below(longest_text - 3);
  while (value.size() < size) {
    value = joined(value, bytes_of(next_number(node, 32), 4));
  }
  Cell& cell = node.cells.texts.at(thread_);
  const Called written =
      write(node, cell, value, {"io", "write_text", joined({sub_index_}, value)});
  read(node, cell, {"io", own("read_text_")}, [&] { confirm(node, written, cell, value); });
}

/// Those of all threads; the others may write theirs at the same time.
void Worker::read_words(SoakNode& node) {
  const Called called = call(node, {"io", "read_words", {}, threads});
  if (!called.report.result.ok) {
    return;
  }
  const Bytes& all = called.report.result.data;
  if (all.size() != 4 * threads) {
    return wrong(node, "read_words answers " + text_of(all));
  }
  check_value(node, node.cells.words.at(thread_), part(all, 4 * thread_, 4), "read_words");
  for (std::size_t thread = 0; thread < threads; ++thread) {
    const std::uint8_t writer = all.at(4 * thread + 3) >> 4U;
    if (writer != 0 && writer != sub_index_of(thread)) {
      wrong(node, "read_words has a word of another thread: " + text_of(all));
    }
  }
}

void Worker::write_field(SoakNode& node) {
  static constexpr const char* ways[] = {"write_field_", "patch_field_", "refresh_field_",
                                         "auto_field_"};
  const Bytes value = bytes_of(next_number(node, 16), 2);
  Cell& cell = node.cells.fields.at(thread_);
  const Called written = write(node, cell, value, {"io", own(ways[below(std::size(ways))]), value});
  read(node, cell, {"io", own("read_field_")}, [&] { confirm(node, written, cell, value); });
}

void Worker::write_io(SoakNode& node) {
  const Bytes value = bytes_of(next_number(node, 16), 2);
  Cell& cell = node.cells.fields.at(thread_);
  const Called written =
      write(node, cell, value, {"io", "write_io", joined({0, 0, sub_index_}, value)});
  read(node, cell, {"io", "read_io", {0, 0, sub_index_}},
       [&] { confirm(node, written, cell, value); });
}

void Worker::write_pump(SoakNode& node) {
  const Bytes value = bytes_of(next_number(node, 16), 2);
  Cell& cell = node.cells.pumps.at(thread_);
  const Called written =
      write(node, cell, value, {"pumps", "set_pump", joined({sub_index_}, value)});
  read(node, cell, {"pumps", own("read_pump_")}, [&] { confirm(node, written, cell, value); });
}

void Worker::patch_outputs(SoakNode& node) {
  const Bytes bit{static_cast<std::uint8_t>(below(2))};
  const auto mask = static_cast<std::uint8_t>(1U << thread_);
  const auto values = static_cast<std::uint8_t>(bit.front() << thread_);
  Cell& cell = node.cells.outputs.at(thread_);
  const Called written = write(node, cell, bit, {"io", "patch_outputs", {mask, values}});
  read_bits(node, [&] { confirm(node, written, cell, bit); });
}

void Worker::patch_bit(SoakNode& node) {
  const Bytes bit{static_cast<std::uint8_t>(below(2))};
  const auto field = static_cast<std::uint8_t>(below(2));
  Cell& cell = (field == 0 ? node.cells.outputs : node.cells.flags).at(thread_);
  const Called written =
      write(node, cell, bit,
            {"io",
             below(3) == 0 ? "patch_bit_by_sdo" : "patch_bit",
             {sub_index_of(field), static_cast<std::uint8_t>(thread_), bit.front()}});
  read_bits(node, [&] { confirm(node, written, cell, bit); });
}

void Worker::read_bits(SoakNode& node, const Confirm& confirm) {
  const Called called = call(node, {"io", "read_bits", {}, 2});
  if (!called.report.result.ok) {
    return;
  }
  if (confirm) {
    confirm();
  }
  const Bytes& bytes = called.report.result.data;
  if (bytes.size() != 2) {
    return wrong(node, "read_bits answers " + text_of(bytes));
  }
  check_value(node, node.cells.outputs.at(thread_), bit_of(bytes[0], thread_), "bit of outputs");
  check_value(node, node.cells.flags.at(thread_), bit_of(bytes[1], thread_), "bit of flags");
}

void Worker::command_led(SoakNode& node) {
  static constexpr Operation commands[] = {&Worker::set_led, &Worker::set_color,
                                           &Worker::set_led_mode};
  (this->*commands[below(std::size(commands))])(node);
}

void Worker::set_led(SoakNode& node) {
  const Bytes color = bytes_of(next_number(node, 24), 3);
  const Bytes mode{static_cast<std::uint8_t>(below(4))};
  const Bytes period = bytes_of(next_number(node, 16), 2);
  Cells& cells = node.cells;
  cells.mode.begin_write(mode);
  cells.period.begin_write(period);
  const Called written =
      write(node, cells.color, color, {"io", "set_led", joined(joined(color, mode), period)});
  read_led(node, [&] {
    confirm(node, written, cells.color, color);
    confirm(node, written, cells.mode, mode);
    confirm(node, written, cells.period, period);
  });
}

void Worker::set_color(SoakNode& node) {
  const Bytes color = bytes_of(next_number(node, 24), 3);
  const Called written = write(node, node.cells.color, color, {"io", "set_color", color, 5});
  read_led(node, [&] { confirm(node, written, node.cells.color, color); });
}

void Worker::set_led_mode(SoakNode& node) {
  const Bytes mode{static_cast<std::uint8_t>(below(4))};
  const Bytes period = bytes_of(next_number(node, 16), 2);
  Cells& cells = node.cells;
  cells.period.begin_write(period);
  const Called written = write(node, cells.mode, mode, {"io", "set_mode", joined(mode, period), 5});
  read_led(node, [&] {
    confirm(node, written, cells.mode, mode);
    confirm(node, written, cells.period, period);
  });
}

void Worker::read_led(SoakNode& node, const Confirm& confirm) {
  const Called called = call(node, {"io", "read_led", {}, 3});
  if (called.report.result.ok) {
    confirm();
    const Bytes& bytes = called.report.result.data;
    check_value(node, node.cells.color, part(bytes, 0, 3), "color");
    check_value(node, node.cells.mode, part(bytes, 3, 1), "mode");
    check_value(node, node.cells.period, part(bytes, 4, 2), "period");
  }
}

void Worker::command_drive(SoakNode& node) {
  static constexpr Operation commands[] = {
      &Worker::enable,     &Worker::enable,         &Worker::disable,
      &Worker::quick_stop, &Worker::set_target,     &Worker::set_target,
      &Worker::set_target, &Worker::set_drive_mode, &Worker::set_ramp};
  (this->*commands[below(std::size(commands))])(node);
}

void Worker::enable(SoakNode& node) {
  const Bytes word = bytes_of(0xF, 2);
  Cells& cells = node.cells;
  const Bytes mode{world_->bridge.motor_mode(device_of("drive", node.id))};
  cells.drive_mode.begin_write(mode);
  cells.controlword.begin_write(bytes_of(0x6, 2));
  cells.image_controlword.begin_write(word);
  const Called written = write(node, cells.controlword, word, {"drive", "enable", {}, 3});
  read_drive(node, cells.controlword, 0, [&] {
    confirm(node, written, cells.drive_mode, mode);
    confirm(node, written, cells.controlword, word);
    confirm(node, written, cells.image_controlword, word);
  });
  read_drive(node, cells.drive_mode, 0x20, [] {});
}

void Worker::disable(SoakNode& node) {
  const Bytes word = bytes_of(0x6, 2);
  Cells& cells = node.cells;
  cells.image_controlword.begin_write(word);
  const Called written = write(node, cells.controlword, word, {"drive", "disable"});
  read_drive(node, cells.controlword, 0, [&] {
    confirm(node, written, cells.controlword, word);
    confirm(node, written, cells.image_controlword, word);
  });
}

/// The image keeps the controlword from before.
void Worker::quick_stop(SoakNode& node) {
  write_drive(node, node.cells.controlword, bytes_of(0x2, 2), {"drive", "quick_stop"}, 0);
}

void Worker::set_drive_mode(SoakNode& node) {
  static constexpr std::uint8_t modes[] = {1, 3, 4};
  const Bytes mode{modes[below(std::size(modes))]};
  Cell& cell = node.cells.drive_mode;
  const Called written = write(node, cell, mode, {"drive", "set_drive_mode", mode});
  if (written.report.result.ok &&
      world_->bridge.motor_mode(device_of("drive", node.id)) != mode.front()) {
    wrong(node, "the mode that was set is not recorded");
  }
  read_drive(node, cell, 0x20, [&] { confirm(node, written, cell, mode); });
}

/// A frame carries the controlword of the image as well. After a quick stop that is not the node's,
/// and an image that is forgotten and loaded meanwhile has the node's.
void Worker::set_target(SoakNode& node) {
  Cells& cells = node.cells;
  const std::uint32_t value = next_number(node, 16);
  const std::uint8_t mode = world_->bridge.motor_mode(device_of("drive", node.id));
  const Call call{"drive", "set_target", bytes_of(value, 2)};
  if (mode == 1) {
    write_drive(node, cells.position, extended(value, 4), call, 0x3A);
  } else if (mode == 4) {
    write_drive(node, cells.torque, bytes_of(value, 2), call, 0x31);
  } else {
    cells.image_controlword.begin_write(cells.controlword);
    cells.controlword.begin_write(cells.image_controlword);
    write_drive(node, cells.velocity, extended(value, 4), call, 0xBF);
  }
  read_drive(node, cells.controlword, 0, [] {});
}

void Worker::set_ramp(SoakNode& node) {
  const Bytes value = bytes_of(next_number(node, 32), 4);
  write_drive(node, node.cells.ramp, value, {"drive", "set_ramp", value}, 0x43);
}

/// And reads it back, at this distance from the drive's first object.
void Worker::write_drive(SoakNode& node, Cell& cell, const Bytes& value, const Call& call,
                         std::uint8_t offset) {
  const Called written = write(node, cell, value, call);
  read_drive(node, cell, offset, [&] { confirm(node, written, cell, value); });
}

void Worker::read_drive(SoakNode& node, const Cell& cell, std::uint8_t offset,
                        const Confirm& confirm) {
  read(node, cell, {"drive", "read_io", {offset, 0, 0}}, confirm);
}

void Worker::command_claw(SoakNode& node) {
  static constexpr const char* actions[] = {"extend", "home", "query"};
  call(node, {"claw", actions[below(std::size(actions))], {}, 4});
  const Called called = call(node, {"claw", "query", {}, 2});
  const Bytes& states = called.report.result.data;
  if (called.report.result.ok && (states.size() != 2 || states[0] > 3 || states[1] > 3)) {
    wrong(node, "the claw answers " + text_of(states));
  }
}

std::uint32_t Worker::next_number(SoakNode& node, unsigned bits) const {
  return signed_number(thread_, ++node.sequences.at(thread_), bits);
}

}  // namespace velmora_can_bridge::soak

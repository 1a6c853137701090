#include "random_board.hpp"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "every_variant.hpp"
#include "ground/number_text.hpp"
#include "ground/pdo.hpp"
#include "operation_input.hpp"
#include "repository_paths.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr const char* devices_of_mapped[] = {"io", "wheel", "claw"};

/// A board file has no RPDO 0, and no two PDOs of one number.
void drop_what_no_file_holds(std::vector<PdoConfig>& pdos) {
  std::set<std::pair<std::string, std::uint8_t>> names;
  pdos.erase(
      std::remove_if(pdos.begin(), pdos.end(),
                     [&](const PdoConfig& pdo) {
                       return pdo.number == 0 || !names.insert({pdo.direction, pdo.number}).second;
                     }),
      pdos.end());
}

}  // namespace

void PrintTo(BoardSource source, std::ostream* out) {
  static constexpr const char* names[] = {"arbitrary", "mapped", "every_operation", "example"};
  *out << names[static_cast<std::size_t>(source)];
}

std::string step_text(const RandomStep& step) {
  static constexpr const char* events[] = {"", "reset, ", "boot-up, ", "write, "};
  return events[static_cast<std::size_t>(step.event)] + std::to_string(step.pause.count()) +
         " ms, " + step.device + " " + step.operation + " " + bytes_text(step.payload);
}

void prepare(BoardOnBus& board, const RandomStep& step) {
  const std::uint8_t node_id = board.bridge.board().nodes.front().node_id;
  switch (step.event) {
    case RandomStep::Event::nothing:
      break;
    case RandomStep::Event::reset:
      board.bridge.send(NmtCommand::reset_node, 0);
      board.bridge.send(NmtCommand::start, 0);
      break;
    case RandomStep::Event::boot_up:
      board.nodes.open({})->send({static_cast<std::uint16_t>(0x700 + node_id), 1, {0}},
                                 std::chrono::nanoseconds(0));
      break;
    case RandomStep::Event::write:
      board.bridge.write_object(node_id, step.index, step.sub_index, step.data);
      break;
  }
  board.nodes.tick(step.pause);
  board.channel.take();
}

RandomBoard::RandomBoard(std::mt19937& random, BoardSource source) : random_(&random) {
  switch (source) {
    case BoardSource::arbitrary:
      make_arbitrary();
      break;
    case BoardSource::mapped:
      make_mapped();
      break;
    case BoardSource::every_operation:
      make_every_operation();
      break;
    case BoardSource::example:
      make_example();
      break;
  }
  for (const auto& [name, entry] : node().board.device_od_map) {
    devices_.push_back(name);
  }
  std::sort(devices_.begin(), devices_.end());
  for (const PdoConfig& pdo : node().board.pdos) {
    mappings_.insert(mappings_.end(), pdo.mappings.begin(), pdo.mappings.end());
  }
  add_unchanging();
  std::shuffle(callables_.begin(), callables_.end(), *random_);
}

std::string RandomBoard::unchanging(std::uint8_t rpdo, bool refresh) {
  return (refresh ? "send loaded " : "send ") + std::to_string(rpdo);
}

RandomStep RandomBoard::step() {
  RandomStep step;
  if (one_in(5)) {
    step.event = static_cast<RandomStep::Event>(1 + below(3));
  }
  if (step.event == RandomStep::Event::write && !mappings_.empty()) {
    const PdoMapping& mapping = mappings_[below(mappings_.size())];
    step.index = mapping.index;
    step.sub_index = mapping.sub_index;
    step.data = bytes((mapping.bit_length + 7U) / 8U);
  }
  step.pause = std::chrono::milliseconds(one_in(2) ? 0 : below(400));
  const Callable& callable = callables_[next_++ % callables_.size()];
  step.device = one_in(4) ? devices_[below(devices_.size())] : callable.device;
  step.operation = callable.operation;
  step.payload = one_in(4) ? payload() : callable.payload;
  return step;
}

void RandomBoard::make_arbitrary() {
  const Bytes drawn = bytes(4000);
  FuzzInput input(drawn.data(), drawn.size());
  file_.nodes.push_back({0x10, take_board(input), {}});
  std::vector<PdoConfig>& pdos = file_.nodes.front().board.pdos;
  drop_what_no_file_holds(pdos);
  for (PdoConfig& pdo : pdos) {
    // 0x270 and on are predefined for nodes that are not there.
    pdo.cob_id = static_cast<std::uint16_t>(one_in(3) ? 0x270 + pdo.number : 0);
  }
  for (int operations = 0; operations < 24; ++operations) {
    const OperationStep step = take_step(input);
    add("operation " + std::to_string(operations), step.op, step.device, step.payload);
  }
}

void RandomBoard::make_mapped() {
  file_.nodes.push_back({0x10, {}, {}});
  BoardConfig& board = file_.nodes.front().board;
  board.device_od_map = {{"io", {"io", 0x2000, 0}},
                         {"wheel", {"ci402", 0x6040, 0}},
                         {"claw", {"claw", 0x6840, 0x2800}}};
  for (std::uint8_t number = 1; number <= 6; ++number) {
    board.pdos.push_back(mapped_rpdo(number));
  }
  for (const OperationKind& kind : operation_kinds) {
    for (int variant = 0; variant < 3; ++variant) {
      const OperationConfig op = mapped_operation(kind.kind);
      add(std::string(kind.kind) + " " + std::to_string(variant), op,
          devices_of_mapped[below(std::size(devices_of_mapped))], suitable_payload(op));
    }
  }
}

/// Numbers 5 and 6 have no COB-ID unless they are given one.
PdoConfig RandomBoard::mapped_rpdo(std::uint8_t number) {
  static const std::vector<PdoMapping> drive_objects{
      {0x6040, 0, 16, "controlword"}, {0x6060, 0, 8, "mode"},
      {0x60FF, 0, 32, "velocity"},    {0x6840, 0, 16, ""},
      {0x6860, 0, 8, "motion"},       {0x0005, 0, 8, ""}};
  static constexpr std::uint8_t bit_lengths[] = {8, 8, 8, 8, 16, 16, 24, 32, 1, 4, 12};
  PdoConfig rpdo{number, "RPDO", 0, {}};
  rpdo.cob_id = static_cast<std::uint16_t>(one_in(2) ? 0x270 + number : 0);
  unsigned bits = 0;
  for (std::uint8_t sub_index = 1; bits <= 32; ++sub_index) {
    PdoMapping mapping{static_cast<std::uint16_t>(0x2000 + number), sub_index,
                       bit_lengths[below(std::size(bit_lengths))],
                       one_in(4) ? "" : "field " + std::to_string(sub_index)};
    mapping = one_in(3) ? drive_objects[below(drive_objects.size())] : mapping;
    bits += mapping.bit_length;
    rpdo.mappings.push_back(mapping);
  }
  return rpdo;
}

/// Of something that the board has.
OperationConfig RandomBoard::mapped_operation(std::string_view kind) {
  static constexpr const char* actions[] = {"extend", "home", "query"};
  static constexpr const char* led_operations[] = {"set_led", "set_color", "set_mode"};
  const std::vector<PdoConfig>& pdos = node().board.pdos;
  const PdoConfig& rpdo = pdos[below(pdos.size())];
  OperationConfig op;
  op.kind = kind;
  op.pdo_number = one_in(4) ? std::uint8_t{0} : rpdo.number;
  op.pump_pdo_number = rpdo.number;
  op.transport = one_in(4) ? "sdo" : "";
  op.refresh_shadow = one_in(3) ? 1 : 0;
  op.named = one_in(2) ? 1 : 0;
  op.bit_index = static_cast<std::uint8_t>(below(8));
  op.index_offset = acceleration_offset;
  op.action = actions[below(std::size(actions))];
  op.led_operation = led_operations[below(std::size(led_operations))];
  for (std::size_t fields = 1 + below(3); fields > 0; --fields) {
    const PdoMapping& mapping = rpdo.mappings[below(rpdo.mappings.size())];
    op.index = mapping.index;
    op.sub_index = mapping.sub_index;
    op.sub_indices.push_back(mapping.sub_index);
    op.fields.push_back(mapping.field);
  }
  op.rpdo_channels = {1, 2};
  op.sdo_channels = {0, 3};
  return op;
}

Bytes RandomBoard::suitable_payload(const OperationConfig& op) {
  if (op.kind == "od_io_write" || op.kind == "od_io_read") {
    return {static_cast<std::uint8_t>(op.index & 0xFFU), 0, op.sub_index, 1};
  }
  if (op.kind == "pdo_bit_patch") {
    return op.named != 0 ? Bytes{1} : Bytes{1, op.bit_index, 1};
  }
  if (op.kind == "led_write") {
    return op.led_operation == "set_led" ? Bytes{1, 2, 3, 1, 0, 0} : Bytes{1, 0, 0};
  }
  if (op.kind == "pump_duty") {
    return {1, 1, 0};
  }
  return op.kind == "pdo_write" ? bytes(8) : payload();
}

void RandomBoard::make_every_operation() {
  file_ = every_variant_file();
  for (const OperationVariant& variant : every_variant()) {
    callables_.push_back({variant.name, variant.device, variant.payload});
  }
}

void RandomBoard::make_example() {
  file_ = load_board_file(example_board_path).file.value();
  static const std::map<std::string, std::string> devices_of_kinds{
      {"claw_action", "claw"},
      {"led_write", "led"},
      {"pump_duty", "pumps"},
  };
  const std::map<std::string, OperationConfig> operations = node().operations;
  for (const auto& [name, op] : operations) {
    const auto device = devices_of_kinds.find(op.kind);
    add(name, op, device == devices_of_kinds.end() ? "left_wheel" : device->second,
        suitable_payload(op));
  }
}

void RandomBoard::add_unchanging() {
  for (const PdoConfig& pdo : node().board.pdos) {
    if (!is_rpdo(pdo) || pdo.mappings.empty()) {
      continue;
    }
    OperationConfig op;
    op.kind = "pdo_patch";
    op.pdo_number = pdo.number;
    op.fields = {pdo.mappings.front().field};
    file_.nodes.front().operations[unchanging(pdo.number, false)] = op;
    op.refresh_shadow = 1;
    file_.nodes.front().operations[unchanging(pdo.number, true)] = op;
  }
}

void RandomBoard::add(const std::string& name, const OperationConfig& op, const std::string& device,
                      const Bytes& payload) {
  file_.nodes.front().operations[name] = op;
  callables_.push_back({name, device, payload});
}

std::size_t RandomBoard::below(std::size_t limit) {
  return std::uniform_int_distribution<std::size_t>(0, limit - 1)(*random_);
}

Bytes RandomBoard::bytes(std::size_t count) {
  Bytes drawn(count);
  for (std::uint8_t& byte : drawn) {
    byte = static_cast<std::uint8_t>(below(256));
  }
  return drawn;
}

/// Small numbers name channels and commands, others are values.
Bytes RandomBoard::payload() {
  Bytes drawn = bytes(below(9));
  for (std::uint8_t& byte : drawn) {
    byte = static_cast<std::uint8_t>(one_in(2) ? byte % 5U : byte);
  }
  return drawn;
}

}  // namespace velmora_can_bridge

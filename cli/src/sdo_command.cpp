#include <algorithm>

#include "command_bridge.hpp"
#include "command_bus.hpp"
#include "commands.hpp"
#include "exit_status.hpp"
#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "json_line.hpp"
#include "number_argument.hpp"
#include "report.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"
#include "velmora_can_bridge/values/value_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// One transfer, and how it ended.
struct SdoTransfer {
  std::uint8_t node_id = 0;
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  /// What is written, or was read.
  Bytes data;
  std::optional<BusError> error;
};

std::optional<SdoTransfer> read_object(const CommandLineHost& host, const SdoArguments& arguments) {
  const auto node_id =
      or_diagnostic(host, number_argument("node id", arguments.node, 1, highest_node_id));
  const auto index = or_diagnostic(host, number_argument("index", arguments.index, 0, 0xFFFF));
  const auto sub_index =
      or_diagnostic(host, number_argument("sub-index", arguments.sub_index, 0, 0xFF));
  if (!node_id || !index || !sub_index) {
    return std::nullopt;
  }
  return SdoTransfer{static_cast<std::uint8_t>(*node_id),
                     static_cast<std::uint16_t>(*index),
                     static_cast<std::uint8_t>(*sub_index),
                     {},
                     {}};
}

/// What the value says: with a board file by what that tells of the object.
ValueReading reading_of(const SdoTransfer& transfer, const std::optional<BoardFile>& board) {
  const NodeConfig* node = nullptr;
  if (board) {
    const auto found =
        std::find_if(board->nodes.begin(), board->nodes.end(),
                     [&](const NodeConfig& each) { return each.node_id == transfer.node_id; });
    node = found == board->nodes.end() ? nullptr : &*found;
  }
  return read_value(node, transfer.index, transfer.sub_index, transfer.data);
}

void print_line(const CommandLineHost& host, const std::string& name, const std::string& text) {
  host.out << name << ": " << visible_text(text) << '\n';
}

void print_number(const CommandLineHost& host, const ValueNumber& number) {
  const bool is_decimal = std::holds_alternative<double>(number);
  const bool is_signed = std::holds_alternative<std::int64_t>(number);
  print_line(host, is_decimal ? "number" : is_signed ? "signed" : "unsigned", number_text(number));
}

/// What the number is where its first bit is a sign, which nobody tells.
void print_guessed_sign(const CommandLineHost& host, const Bytes& data) {
  constexpr unsigned bits_per_byte = 8;
  const ValueNumber number =
      number_of_bits(little_endian_number(data), static_cast<unsigned>(data.size() * bits_per_byte),
                     ValueType::s64);
  if (std::get<std::int64_t>(number) < 0) {
    print_number(host, number);
  }
}

void print_data(const CommandLineHost& host, const Bytes& data, const ValueReading& reading) {
  host.out << "data: " << bytes_text(data) << '\n';
  if (reading.is_text) {
    print_line(host, "text", reading.words);
    return;
  }
  if (reading.number) {
    print_number(host, *reading.number);
  }
  if (reading.number && !reading.is_typed) {
    print_guessed_sign(host, data);
  }
  if (!reading.words.empty()) {
    print_line(host, "meaning", reading.words);
  }
}

void print_text(const CommandLineHost& host, const SdoTransfer& transfer,
                const ValueReading& reading, bool reads) {
  if (transfer.error) {
    print_failure(host,
                  (reads ? "SDO read of " : "SDO write of ") +
                      object_text(transfer.index, transfer.sub_index) + " on node " +
                      hex<2>(transfer.node_id),
                  transfer.error->text);
  } else if (reads) {
    print_data(host, transfer.data, reading);
  } else {
    host.out << "ok: " << object_text(transfer.index, transfer.sub_index) << " on node "
             << hex<2>(transfer.node_id) << " written\n";
  }
}

void print_json(const CommandLineHost& host, const SdoTransfer& transfer,
                const ValueReading& reading, ExitStatus status) {
  nlohmann::ordered_json line{
      {"node_id", transfer.node_id},      {"index", transfer.index},
      {"sub_index", transfer.sub_index},  {"ok", status == ExitStatus::success},
      {"code", exit_status_word(status)}, {"data", transfer.data}};
  if (transfer.error) {
    line["reason"] = transfer.error->text;
  } else {
    add_reading(line, reading);
  }
  print_json_line(host, line);
}

/// The node of that id; null where no board file tells of it.
const NodeConfig* find_node(const std::optional<BoardFile>& board, std::uint8_t node_id) {
  for (std::size_t position = 0; board && position < board->nodes.size(); ++position) {
    if (board->nodes[position].node_id == node_id) {
      return &board->nodes[position];
    }
  }
  return nullptr;
}

/// Opens the bus, transfers, and prints what came of it.
template <typename Exchange>
ExitStatus execute(const CommandLineHost& host, const SdoArguments& arguments,
                   const std::optional<BoardFile>& board, SdoTransfer& transfer, bool reads,
                   const Exchange& exchange) {
  const auto bus = CommandBus::open(host, arguments.bus, board ? &*board : nullptr);
  if (!bus) {
    return ExitStatus::bad_input;
  }
  CommandBridge bridge(host, bus->channel(), {}, sdo_times(arguments.bus));
  transfer.error = bridge.ask(exchange);
  const ExitStatus status = transfer.error ? exit_status_of(*transfer.error) : ExitStatus::success;
  const ValueReading reading = reading_of(transfer, board);
  if (arguments.json) {
    print_json(host, transfer, reading, status);
  } else {
    print_text(host, transfer, reading, reads);
  }
  bridge.await_late_answers();
  return bus->finish(status);
}

}  // namespace

ExitStatus sdo_read_command(const CommandLineHost& host, const SdoArguments& arguments) {
  std::optional<SdoTransfer> transfer = read_object(host, arguments);
  std::optional<BoardFile> board;
  if (!transfer || !load_optional_board(host, arguments.board, board)) {
    return ExitStatus::bad_input;
  }
  return execute(host, arguments, board, *transfer, true, [&](Bridge& bridge) {
    auto read = bridge.read_object(transfer->node_id, transfer->index, transfer->sub_index);
    if (!read) {
      return std::make_optional(read.error());
    }
    transfer->data = *std::move(read);
    return std::optional<BusError>();
  });
}

ExitStatus sdo_write_command(const CommandLineHost& host, const SdoArguments& arguments) {
  std::optional<SdoTransfer> transfer = read_object(host, arguments);
  std::optional<BoardFile> board;
  if (!transfer || !load_optional_board(host, arguments.board, board)) {
    return ExitStatus::bad_input;
  }
  const auto value =
      or_diagnostic(host, object_from_words(find_node(board, transfer->node_id), transfer->index,
                                            transfer->sub_index, arguments.value));
  if (!value) {
    return ExitStatus::bad_input;
  }
  transfer->data = *value;
  return execute(host, arguments, board, *transfer, false, [&](Bridge& bridge) {
    return bridge.write_object(transfer->node_id, transfer->index, transfer->sub_index,
                               transfer->data);
  });
}

}  // namespace velmora_can_bridge

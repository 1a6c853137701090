// Any text as board file; what loads is put to use.
#include <algorithm>
#include <cstddef>
#include <set>
#include <string>

#include "fuzz_input.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Does everything, and answers reads with four bytes.
class ObedientBus : public CanOpenBackend {
 public:
  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                Bytes& data) override {
    data = {1, 2, 3, 4};
    return true;
  }

  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const Bytes& /*data*/) override {
    return true;
  }

  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t rpdo,
                 const std::array<std::uint8_t, 8>& /*data*/, std::uint8_t length) override {
    promise(rpdo != 0, "a file has no RPDO 0");
    promise(length > 0 && length <= 8, "a frame has the length of its mappings");
    return true;
  }
};

/// Bytes of each line of the text.
std::vector<std::size_t> line_lengths(const std::string& text) {
  std::vector<std::size_t> lengths(1);
  for (const char character : text) {
    if (character == '\n') {
      lengths.push_back(0);
    } else {
      ++lengths.back();
    }
  }
  return lengths;
}

void check_problem(const Problem& problem, const std::vector<std::size_t>& lines) {
  promise(!problem.message.empty(), "a problem has a text");
  promise(problem.message.size() < 500, "a problem is short");
  promise(std::all_of(problem.message.begin(), problem.message.end(),
                      [](char character) {
                        const auto byte = static_cast<unsigned char>(character);
                        return byte >= 0x20 && byte != 0x7F;
                      }),
          "a problem is one line");
  promise((problem.line == 0) == (problem.column == 0), "a place has a line and a column");
  promise(problem.line <= lines.size(), "the line is one of the file");
  // The end of the line is a place, too.
  promise(problem.line == 0 || problem.column <= lines[problem.line - 1] + 1,
          "the column is one of the line");
}

void check_problems(const LoadedBoard& loaded, const std::string& text) {
  const std::vector<std::size_t> lines = line_lengths(text);
  bool has_error = false;
  for (const Problem& problem : loaded.problems) {
    check_problem(problem, lines);
    has_error = has_error || problem.severity == Severity::error;
  }
  promise(loaded.problems.size() <= 201, "at most a hundred of each severity and a note");
  promise(loaded.file.has_value() != has_error, "there is a board or an error");
}

void check_pdos(const BoardConfig& board) {
  for (const PdoConfig& pdo : board.pdos) {
    unsigned bits = 0;
    for (const PdoMapping& mapping : pdo.mappings) {
      bits += mapping.bit_length;
    }
    promise(pdo.number != 0, "a PDO has a number");
    promise(bits <= 64, "a PDO fits into a frame");
  }
}

/// Runs the operation for a device with payloads of several lengths.
void use_operation(const OperationConfig& op, const std::string& device,
                   CanOpenNodeController& controller) {
  for (const std::size_t length : {0U, 1U, 2U, 3U, 6U, 9U}) {
    const OperationResult result =
        controller.execute_configured_operation(op, device, Bytes(length, 1));
    promise(!result.message.empty(), "an answer has a message");
    promise(result.message.rfind("Unknown ", 0) != 0, "what loads is known to the controller");
  }
}

/// Runs the node's operations, at most 50: aliases may repeat them without end.
void use_node(const NodeConfig& node) {
  check_pdos(node.board);
  ObedientBus bus;
  CanOpenNodeController controller(node.node_id, bus, node.board);
  const std::string device =
      node.board.device_od_map.empty() ? "" : node.board.device_od_map.begin()->first;
  int left = 50;
  for (const auto& [name, op] : node.operations) {
    if (left-- == 0) {
      return;
    }
    promise(find_operation_kind(op.kind) != nullptr, "the kind of an operation is known");
    promise(payload_layout({node, device, op}).has_value(), "a payload has a layout");
    use_operation(op, device, controller);
  }
}

void use_board(const BoardFile& file) {
  promise(!file.nodes.empty(), "a board has a node");
  std::set<std::uint8_t> node_ids;
  for (const NodeConfig& node : file.nodes) {
    promise(node.node_id >= 1 && node.node_id <= 127, "a node id is 1 to 127");
    promise(node_ids.insert(node.node_id).second, "a node id stands once");
    use_node(node);
  }
}

void run(const std::string& text) {
  const LoadedBoard loaded = parse_board(text);
  check_problems(loaded, text);
  if (loaded.file) {
    use_board(*loaded.file);
  }
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora_can_bridge::run({data, data + size});
  return 0;
}

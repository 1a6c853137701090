// What docs/operations.md says of payloads in words is what they become.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ground/number_text.hpp"
#include "repository_paths.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"

namespace velmora_can_bridge {
namespace {

struct Row {
  std::string kind;
  /// Device, operation, and the words of the payload.
  std::vector<std::string> words;
  std::string payload;
};

std::vector<std::string> words_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

/// The cells of a row, without their blanks and quotes.
std::vector<std::string> cells_of(const std::string& line) {
  std::vector<std::string> cells;
  std::istringstream stream(line.substr(1));
  for (std::string cell; std::getline(stream, cell, '|');) {
    cell.erase(std::remove(cell.begin(), cell.end(), '`'), cell.end());
    const std::size_t first = cell.find_first_not_of(' ');
    const std::size_t last = cell.find_last_not_of(' ');
    cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
  }
  return cells;
}

std::vector<Row> documented_rows() {
  std::ifstream file(std::string(docs_path) + "/operations.md");
  std::vector<Row> rows;
  bool is_inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("## ", 0) == 0) {
      is_inside = line == "## Payloads in words";
    }
    const auto cells = line.rfind('|', 0) == 0 ? cells_of(line) : std::vector<std::string>();
    if (is_inside && cells.size() == 3 && find_operation_kind(cells[0]) != nullptr) {
      rows.push_back({cells[0], words_of(cells[1]), cells[2]});
    }
  }
  return rows;
}

TEST(OperationsDocument, tells_words_and_bytes_of_every_kind) {
  const LoadedBoard loaded = load_board_file(example_board_path);
  const NodeConfig& node = loaded.file.value().nodes.front();
  std::set<std::string> kinds;
  for (const Row& row : documented_rows()) {
    ASSERT_GE(row.words.size(), 2U);
    const OperationConfig& op = node.operations.at(row.words[1]);
    EXPECT_EQ(op.kind, row.kind);
    EXPECT_EQ(node.board.device_od_map.count(row.words[0]), 1U) << row.words[0];
    const auto payload = payload_from_words(
        {node, row.words[0], op}, std::vector<std::string>(row.words.begin() + 2, row.words.end()));
    ASSERT_TRUE(payload) << payload.error();
    EXPECT_EQ(payload->empty() ? "none" : hex_bytes(*payload), row.payload) << row.words[1];
    kinds.insert(row.kind);
  }
  EXPECT_EQ(kinds.size(), std::size(operation_kinds));
}

}  // namespace
}  // namespace velmora_can_bridge

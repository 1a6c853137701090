// What is written about the operation kinds stands there for every one of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "repository_paths.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using Lines = std::vector<std::string>;

Lines lines_of(const std::string& document) {
  std::ifstream file(std::string(docs_path) + "/" + document);
  Lines lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  EXPECT_FALSE(lines.empty()) << document;
  return lines;
}

bool starts_with(const std::string& line, std::string_view start) {
  return line.compare(0, start.size(), start) == 0;
}

/// Whether the line has the kind's name, and not only as a part of another.
bool names(const std::string& line, std::string_view kind) {
  const auto is_part_of_a_name = [&](std::size_t position) {
    return position < line.size() &&
           (std::isalnum(static_cast<unsigned char>(line[position])) != 0 || line[position] == '_');
  };
  for (std::size_t at = line.find(kind); at != std::string::npos; at = line.find(kind, at + 1)) {
    if ((at == 0 || !is_part_of_a_name(at - 1)) && !is_part_of_a_name(at + kind.size())) {
      return true;
    }
  }
  return false;
}

/// The keys of a kind as the table in board-file.md has them.
std::string keys_of(const OperationKind& kind) {
  std::string text;
  for (const std::string_view member : kind.members) {
    const std::string key = "`" + std::string(member) + "`";
    text += (text.empty() ? "" : ", ") + (kind.required.contains(member) ? "**" + key + "**" : key);
  }
  return text.empty() ? "none" : text;
}

TEST(KindDocuments, operations_tell_every_kind_in_a_section) {
  const Lines lines = lines_of("operations.md");
  for (const OperationKind& row : operation_kinds) {
    EXPECT_TRUE(std::any_of(
        lines.begin(), lines.end(),
        [&](const std::string& line) { return starts_with(line, "## ") && names(line, row.kind); }))
        << "no section for kind " << row.kind;
  }
}

TEST(KindDocuments, operations_list_every_kind) {
  const Lines lines = lines_of("operations.md");
  for (const OperationKind& row : operation_kinds) {
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                            [&](const std::string& line) {
                              return starts_with(line, "| [" + std::string(row.kind) + "](#");
                            }))
        << "no row for kind " << row.kind;
  }
}

TEST(KindDocuments, board_files_tell_the_keys_of_every_kind) {
  const Lines lines = lines_of("board-file.md");
  for (const OperationKind& row : operation_kinds) {
    const std::string end = " | " + keys_of(row) + " |";
    EXPECT_TRUE(std::any_of(
        lines.begin(), lines.end(),
        [&](const std::string& line) {
          const bool has_keys = line.size() > end.size() &&
                                line.compare(line.size() - end.size(), end.size(), end) == 0;
          return has_keys && names(line.substr(0, line.size() - end.size()), row.kind);
        }))
        << "no row for kind " << row.kind << " with the keys " << keys_of(row);
  }
}

}  // namespace
}  // namespace velmora_can_bridge

#include "velmora_can_bridge/config/board_file.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "problem_texts.hpp"
#include "repository_paths.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

TEST(ProblemText, names_file_and_place) {
  EXPECT_EQ(problem_text("robot.yaml", {Severity::error, 12, 14, "wrong"}),
            "robot.yaml:12:14: error: wrong");
}

TEST(ProblemText, names_the_severity) {
  EXPECT_EQ(problem_text("robot.yaml", {Severity::warning, 1, 2, "odd"}),
            "robot.yaml:1:2: warning: odd");
}

TEST(ProblemText, names_the_file_alone_without_a_line) {
  EXPECT_EQ(problem_text("robot.yaml", {Severity::error, 0, 0, "wrong"}),
            "robot.yaml: error: wrong");
}

TEST(ParseBoard, reports_everything_in_one_run) {
  const LoadedBoard loaded = parse_board(R"(nodes:
  - node_id: 200
    device_od_map:
      wheel: {profile: ci403, base_indx: 0x6040}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0, bit_length: 72, field: [red]}
          - {index: 1, bit_length: 8, feld: green}
    operations:
      write: {kind: sdo_wirte, index: "5"}
      read: {kind: sdo_read, data_type: u8}
      read: {kind: sdo_read, index: 1}
  - node_id: 2
    operations:
      set: {kind: sdo_write, index: 1, fixed_data: [1, 300], pdo_number: 4}
)");
  EXPECT_FALSE(loaded.file.has_value());
  EXPECT_THAT(
      texts_of(loaded.problems),
      ElementsAre(
          "2:14: error: node_id: expected a number from 1 to 127, found \"200\"",
          "4:14: error: device: missing key \"base_index\"",
          "4:24: error: profile: expected \"\", \"ci402\", \"claw\" or \"io\", found \"ci403\", "
          "did you mean \"ci402\"?",
          "4:31: error: device: unknown key \"base_indx\", did you mean \"base_index\"?",
          "9:21: error: index: expected a number from 1 to 0xFFFF, found \"0\"",
          "9:36: error: bit_length: expected a number from 1 to 64, found \"72\"",
          "9:47: error: field: expected a text, found a list",
          "10:39: error: mapping: unknown key \"feld\", did you mean \"field\"?",
          "12:21: error: kind: expected " + all_kinds +
              ", found \"sdo_wirte\", did you mean \"sdo_write\"?",
          "12:39: error: index: expected a number from 0 to 0xFFFF, found the text \"5\" (a number "
          "has no quotes)",
          "13:13: error: operation: missing key \"index\", which sdo_read needs",
          "13:30: warning: operation: sdo_read does not read \"data_type\"",
          "14:7: error: key \"read\" stands twice, first in line 13",
          "17:56: error: fixed_data: expected a number from 0 to 255, found \"300\" (it has two "
          "bytes, the low one first: 0x2C, 0x01)",
          "17:62: warning: operation: sdo_write does not read \"pdo_number\"",
          "17:74: error: pdo_number: this node has no RPDO 4"));
}

TEST(ParseBoard, loads_a_file_with_warnings) {
  const LoadedBoard loaded = parse_board(
      "nodes: [{node_id: 1, operations: {a: {kind: sdo_read, index: 1, data_type: u8}}}]");
  EXPECT_THAT(loaded.problems, SizeIs(1));
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_EQ(loaded.file->nodes.at(0).operations.at("a").data_type, "u8");
}

TEST(ParseBoard, takes_windows_line_ends) {
  const LoadedBoard loaded = parse_board("nodes:\r\n  - node_id: 1\r\n  - node_id: x\r\n");
  EXPECT_THAT(texts_of(loaded.problems),
              ElementsAre("3:14: error: node_id: expected a number from 1 to 127, found \"x\""));
}

TEST(ParseBoard, takes_aliases_for_what_they_name) {
  const LoadedBoard loaded = parse_board(R"(nodes:
  - node_id: 1
    operations: &common
      read: {kind: sdo_read, index: 0x1000}
  - node_id: 2
    operations: *common
)");
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_EQ(loaded.file->nodes.at(1).operations.at("read").index, 0x1000);
}

class BoardOnDisk : public testing::Test {
 protected:
  void SetUp() override {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    folder = std::filesystem::path(testing::TempDir()) / (std::string("board_") + info->name());
    std::filesystem::create_directories(folder);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }

  std::string write(const std::string& content) const {
    const std::filesystem::path path = folder / "board.yaml";
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }

  std::filesystem::path folder;
};

TEST_F(BoardOnDisk, loads) {
  const LoadedBoard loaded = load_board_file(write("nodes: [{node_id: 7}]"));
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_EQ(loaded.file->nodes.at(0).node_id, 7);
}

TEST_F(BoardOnDisk, may_be_missing) {
  const LoadedBoard loaded = load_board_file((folder / "none.yaml").string());
  EXPECT_FALSE(loaded.file.has_value());
  EXPECT_THAT(texts_of(loaded.problems),
              ElementsAre("error: cannot be read: No such file or directory"));
}

TEST_F(BoardOnDisk, may_be_a_directory) {
  const LoadedBoard loaded = load_board_file(folder.string());
  EXPECT_FALSE(loaded.file.has_value());
  EXPECT_THAT(texts_of(loaded.problems), ElementsAre("error: cannot be read: Is a directory"));
}

TEST_F(BoardOnDisk, may_be_refused_by_the_system) {
  const std::string file = write("nodes: [{node_id: 7}]");
  EXPECT_THAT(texts_of(load_board_file(file + "/below").problems),
              ElementsAre("error: cannot be read: Not a directory"));
}

TEST_F(BoardOnDisk, may_be_empty) {
  EXPECT_THAT(texts_of(load_board_file(write("")).problems),
              ElementsAre("error: the file is empty, expected a map with the key \"nodes\""));
}

TEST_F(BoardOnDisk, may_be_too_large) {
  EXPECT_THAT(texts_of(load_board_file(write(std::string(2'000'001, '#'))).problems),
              ElementsAre("error: the file is larger than 2000000 bytes"));
}

TEST_F(BoardOnDisk, may_have_no_end) {
  EXPECT_THAT(texts_of(load_board_file("/dev/zero").problems),
              ElementsAre("error: the file is larger than 2000000 bytes"));
}

TEST(LoadBoardFile, refuses_an_empty_path) {
  EXPECT_THAT(texts_of(load_board_file("").problems),
              ElementsAre(StartsWith("error: cannot be read: ")));
}

class ExampleBoard : public testing::Test {
 protected:
  LoadedBoard loaded = load_board_file(example_board_path);
};

TEST_F(ExampleBoard, loads_without_a_problem) {
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
  EXPECT_TRUE(loaded.file.has_value());
}

TEST_F(ExampleBoard, shows_every_kind) {
  ASSERT_TRUE(loaded.file.has_value());
  for (const OperationKind& row : operation_kinds) {
    const auto& operations = loaded.file->nodes.at(0).operations;
    EXPECT_TRUE(std::any_of(operations.begin(), operations.end(), [&](const auto& operation) {
      return operation.second.kind == row.kind;
    })) << row.kind;
  }
}

TEST_F(ExampleBoard, explains_every_operation) {
  ASSERT_TRUE(loaded.file.has_value());
  for (const auto& [name, operation] : loaded.file->nodes.at(0).operations) {
    EXPECT_NE(operation.label, "") << name;
    EXPECT_NE(operation.description, "") << name;
  }
}

}  // namespace
}  // namespace velmora_can_bridge

// Files that are made to crash, hang or exhaust whoever reads them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <ostream>
#include <random>
#include <sstream>
#include <string>

#include "problem_texts.hpp"
#include "repository_paths.hpp"
#include "text_check.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  for (std::size_t count = 0; count < times; ++count) {
    all += text;
  }
  return all;
}

/// Lists in lists, each ten times the one before.
std::string growing_aliases(std::size_t generations) {
  std::ostringstream yaml;
  yaml << "a0: &a0 [x]\n";
  for (std::size_t count = 1; count <= generations; ++count) {
    const std::string alias = "*a" + std::to_string(count - 1);
    yaml << "a" << count << ": &a" << count << " [" << repeated(alias + ", ", 9) << alias << "]\n";
  }
  return yaml.str();
}

class HostileFile : public testing::TestWithParam<ProblemCase> {};

TEST_P(HostileFile, is_refused) {
  const LoadedBoard loaded = parse_board(GetParam().yaml);
  EXPECT_EQ(texts_of(loaded.problems), GetParam().problems);
  EXPECT_FALSE(loaded.file.has_value());
}

INSTANTIATE_TEST_SUITE_P(
    of, HostileFile,
    testing::Values(
        ProblemCase{"deep_lists", std::string(100'000, '['), {"1:1: error: nested too deeply"}},
        ProblemCase{"deep_maps", repeated("{a: ", 100'000), {"1:1: error: nested too deeply"}},
        ProblemCase{
            "deep_block_lists", repeated("- ", 100'000), {"1:1000: error: nested too deeply"}},
        ProblemCase{"deep_keys", repeated("? ", 100'000), {"1:998: error: nested too deeply"}},
        ProblemCase{"unclosed_megabyte",
                    '"' + std::string(1'000'000, 'x'),
                    {"1:1000002: error: illegal EOF in scalar"}},
        ProblemCase{
            "megabyte_as_file",
            std::string(1'000'000, 'x'),
            {"1:1: error: board file: expected a map, found \"" + std::string(40, 'x') + "...\""}},
        ProblemCase{"megabyte_as_key",
                    '"' + std::string(1'000'000, 'x') + "\": 1\nnodes: []",
                    {"1:1000003: error: illegal map value (a key before it lacks the blank behind "
                     "its colon, or the line is indented too far)"}},
        ProblemCase{"alias_of_itself",
                    "nodes: &a [*a]",
                    {"1:12: error: the alias names the value that it stands in",
                     "1:12: error: node: expected a map, found nothing"}},
        ProblemCase{"growing_aliases",
                    growing_aliases(400),
                    {"error: aliases repeat so much that the file is larger than 2000000 bytes"}},
        ProblemCase{"repeated_node",
                    "nodes: [&n {node_id: 1, operations: {&k '" + std::string(1000, 'x') +
                        "': {}}}" + repeated(", *n", 3000) + "]",
                    {"error: aliases repeat so much that the file is larger than 2000000 bytes"}}),
    RowName());

/// How many KiB the process's memory grows by, at its peak, while it reads the text.
long growth_while_reading(const std::string& text) {
  const auto peak = [] {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): how the system answers
    return usage.ru_maxrss;
  };
  const long before = peak();
  parse_board(text);
  return peak() - before;
}

struct NestingCase {
  std::string name;
  std::string repeated;
};

void PrintTo(const NestingCase& row, std::ostream* out) { *out << row.name; }

class HostileNesting : public testing::TestWithParam<NestingCase> {};

TEST_P(HostileNesting, of_two_megabytes_is_refused_in_twenty_times_their_memory) {
  const std::string& level = GetParam().repeated;
  const std::string text = repeated(level, longest_file / level.size());
  // In a process of its own, whose peak is that of this reading alone.
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(growth_while_reading(text) < static_cast<long>(20 * longest_file / 1024) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  const LoadedBoard loaded = parse_board(text);
  ASSERT_THAT(loaded.problems, SizeIs(1));
  EXPECT_THAT(loaded.problems[0].message, "nested too deeply");
}

INSTANTIATE_TEST_SUITE_P(
    of, HostileNesting,
    testing::Values(NestingCase{"lists", "["}, NestingCase{"maps", "{"},
                    NestingCase{"maps_with_keys", "{a: "}, NestingCase{"both", "[{a: "},
                    NestingCase{"lists_behind_texts", "[\"]\","},
                    NestingCase{"lists_behind_lists", "[[],"}, NestingCase{"lines", "[\n"},
                    NestingCase{"lines_with_comments", "[#]\n"}, NestingCase{"block_lists", "- "},
                    NestingCase{"block_keys", "? "}),
    RowName());

TEST(HostileFiles, may_hold_brackets_in_texts_and_comments) {
  const std::string brackets(3000, '[');
  const LoadedBoard loaded = parse_board(
      "# " + brackets + "\nnodes:\n- node_id: 1\n  operations:\n    a:\n      label: '" + brackets +
      "'\n      description: |\n        " + brackets +
      "\n      kind: sdo_read\n      index: 1\n    " + "b: {kind: sdo_read, index: 1, label: \"" +
      brackets + "\", # " + brackets + "\n        description: x}\n");
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
}

TEST(HostileFiles, may_hold_a_label_of_a_megabyte) {
  const LoadedBoard loaded =
      parse_board("nodes: [{node_id: 1, operations: {a: {kind: sdo_read, index: 1, label: '" +
                  std::string(1'000'000, 'x') + "'}}}]");
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_THAT(loaded.file->nodes.at(0).operations.at("a").label, SizeIs(1'000'000));
}

TEST(HostileFiles, list_a_hundred_of_many_errors) {
  const LoadedBoard loaded = parse_board("nodes: [" + repeated("x, ", 100'000) + "]");
  EXPECT_FALSE(loaded.file.has_value());
  ASSERT_THAT(loaded.problems, SizeIs(101));
  EXPECT_EQ(texts_of(loaded.problems).back(),
            "error: too many problems: 99900 more errors and 0 more warnings are not listed");
}

TEST(HostileFiles, report_an_error_behind_many_warnings) {
  std::string yaml = "nodes:\n- node_id: 1\n  operations:\n";
  for (std::size_t count = 0; count < 200; ++count) {
    yaml += "    a" + std::to_string(count) + ": {kind: sdo_read, index: 1, named: 1}\n";
  }
  yaml += "    b: {kind: sdo_read}\n";
  const LoadedBoard loaded = parse_board(yaml);
  EXPECT_FALSE(loaded.file.has_value());
  ASSERT_THAT(loaded.problems, SizeIs(102));
  EXPECT_EQ(texts_of(loaded.problems).at(100),
            "204:8: error: operation: missing key \"index\", which sdo_read needs");
}

// Many of everything whose check compares it with the others: slow when that is done one by one.
TEST(HostileFiles, may_be_large) {
  std::string mappings;
  std::string fields;
  for (std::size_t count = 0; count < 20'000; ++count) {
    mappings += "{index: 1, bit_length: 8, field: f" + std::to_string(count) + "}, ";
    fields += "f" + std::to_string(count) + ", ";
  }
  const LoadedBoard loaded = parse_board(
      "nodes: [{node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: [" + mappings +
      "]}], operations: {a: {kind: sdo_read, index: 1, fields: [" + fields + "]}}}]");
  EXPECT_THAT(texts_of(loaded.problems),
              ElementsAre("1:373: error: mapping: ends after 72 bits, a PDO has no more than 64",
                          HasSubstr("sdo_read does not read \"fields\"")));
}

TEST(HostileFiles, may_describe_many_values) {
  std::string codes;
  std::string objects;
  for (std::size_t count = 0; count < 5'000; ++count) {
    codes += "c" + std::to_string(count) + ": " + std::to_string(count) + ", ";
    objects += "{index: " + std::to_string(0x2000 + count) + ", type: s16, unit: V}, ";
  }
  const LoadedBoard loaded = parse_board("nodes: [{node_id: 1, objects: [" + objects +
                                         "{index: 0xFFFF, type: u16, values: {" + codes + "}}]}]");
  EXPECT_THAT(texts_of(loaded.problems), IsEmpty());
  ASSERT_TRUE(loaded.file.has_value());
  EXPECT_THAT(loaded.file->nodes.at(0).values, SizeIs(5'001));
}

TEST(HostileFiles, may_have_many_devices_and_operations) {
  std::string devices;
  std::string operations;
  for (std::size_t count = 0; count < 2'000; ++count) {
    const std::string number = std::to_string(count);
    devices += "d" + number + ": {profile: ci402, base_index: 0x6040}, ";
    operations += "o" + number + ": {kind: auto_write, index: 0x60FF, data_type: s32}, ";
  }
  const LoadedBoard loaded = parse_board("nodes: [{node_id: 1, device_od_map: {" + devices +
                                         "}, operations: {" + operations + "}}]");
  ASSERT_THAT(loaded.problems, SizeIs(101));
  EXPECT_THAT(loaded.problems.front().message, HasSubstr("are those of \"d0\" in line 1"));
}

// Every problem is one line without control characters, with a place inside the file, and there is
// a file or an error.
void expect_sound(const LoadedBoard& loaded) {
  bool has_error = false;
  for (const Problem& problem : loaded.problems) {
    EXPECT_THAT(problem.message, Not(IsEmpty()));
    EXPECT_LT(problem.message.size(), 500U);
    EXPECT_EQ(problem.line == 0, problem.column == 0);
    for (const char character : problem.message) {
      EXPECT_GE(static_cast<unsigned char>(character), 0x20U);
    }
    has_error = has_error || problem.severity == Severity::error;
  }
  EXPECT_NE(loaded.file.has_value(), has_error);
}

std::string example_text() {
  std::ifstream input(example_board_path, std::ios::binary);
  return {std::istreambuf_iterator<char>(input), {}};
}

TEST(HostileFiles, may_be_cut_anywhere) {
  const std::string text = example_text();
  ASSERT_THAT(text, Not(IsEmpty()));
  for (std::size_t length = 0; length < text.size(); length += 31) {
    SCOPED_TRACE("cut after " + std::to_string(length) + " bytes");
    expect_sound(parse_board(text.substr(0, length)));
  }
}

/// The text with a few of its pieces replaced, removed or repeated.
std::string mutated(std::string text, std::mt19937& random) {
  static const std::vector<std::string> pieces = {
      "[",   "]", "{",  "}",  ":",    ": ",    ",",     "- ",   "? ",  "&a ", "*a",
      "!x ", "'", "\"", "\\", "|\n",  ">\n",   "\n",    "\t",   "#",   "%",   "@",
      "`",   "~", "0x", "-1", "<<: ", "---\n", "...\n", "\xFF", "\n\n"};
  const auto below = [&random](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  const std::size_t changes = 1 + below(4);
  for (std::size_t count = 0; count < changes; ++count) {
    const std::size_t place = below(text.size());
    text.replace(place, below(6), pieces[below(pieces.size())]);
  }
  return text;
}

TEST(HostileFiles, may_be_changed_at_random) {
  const std::string text = example_text();
  ASSERT_THAT(text, Not(IsEmpty()));
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    expect_sound(parse_board(mutated(text, random)));
  }
}

}  // namespace
}  // namespace velmora_can_bridge

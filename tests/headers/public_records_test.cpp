#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "repository_paths.hpp"

namespace velmora_can_bridge {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// The structs that `header` defines and that are not private to a class.
std::vector<std::string> records_in(std::istream& header) {
  const std::regex record(R"(^ *struct (?:\w+ )*?(\w+)(?: final)?(?: :.*)? \{)");
  const std::regex scope(R"(^ *(class|struct|private|protected|public)\b.*[{:]$)");
  std::vector<std::string> found;
  bool is_public = true;
  std::string line;
  std::smatch match;
  while (std::getline(header, line)) {
    if (line.rfind("};", 0) == 0) {
      is_public = true;
    } else if (is_public && std::regex_search(line, match, record)) {
      found.push_back(match[1]);
    } else if (std::regex_search(line, match, scope)) {
      is_public = match[1] == "public";
    }
  }
  return found;
}

std::vector<std::string> records_in(const std::string& header) {
  std::istringstream lines(header);
  return records_in(lines);
}

/// The folders of public headers: `include` and those of the companions, without the ground
/// floor's.
std::vector<fs::path> public_folders() {
  std::vector<fs::path> found{fs::path(repository_path) / "include"};
  for (const fs::directory_entry& folder : fs::directory_iterator(repository_path)) {
    const fs::path include = folder.path() / "include" / "velmora_can_bridge";
    if (fs::is_directory(include)) {
      found.push_back(include);
    }
  }
  return found;
}

std::vector<std::string> public_records() {
  std::vector<std::string> found;
  for (const fs::path& folder : public_folders()) {
    for (const fs::directory_entry& header : fs::recursive_directory_iterator(folder)) {
      if (header.path().extension() == ".hpp") {
        std::ifstream text(header.path());
        const std::vector<std::string> records = records_in(text);
        std::copy(records.begin(), records.end(), std::back_inserter(found));
      }
    }
  }
  return found;
}

/// What stands before a list that names a member: "PdoFrame" of "PdoFrame{.length = 1}".
std::vector<std::string> initialised_records() {
  std::ifstream file(fs::path(repository_path) / "tests/headers/designated_initialisers.cpp");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::regex row(R"((\w+)(?:<\w+>)?\{\.)");
  std::vector<std::string> found;
  for (std::sregex_iterator at(text.begin(), text.end(), row), end; at != end; ++at) {
    found.push_back((*at)[1]);
  }
  return found;
}

TEST(PublicRecords, are_found_in_headers) {
  EXPECT_THAT(records_in("struct Record {\n  int member = 0;\n};\n"), ElementsAre("Record"));
  EXPECT_THAT(records_in("struct EXPORTED Record : Base {\n"), ElementsAre("Record"));
  EXPECT_THAT(records_in("struct Outer {\n  struct Inner {\n"), ElementsAre("Outer", "Inner"));
  EXPECT_THAT(records_in("class Shown {\n public:\n  struct Record {\n"), ElementsAre("Record"));
  EXPECT_THAT(records_in("class Shown {\n public:\n  int f();\n\n private:\n  struct Hidden {\n"),
              IsEmpty());
  EXPECT_THAT(records_in("class Shown {\n  struct Hidden {\n  };\n};\nstruct Record {\n"),
              ElementsAre("Record"));
  EXPECT_THAT(records_in("struct Declared;\n"), IsEmpty());
}

TEST(PublicRecords, have_a_row_each_among_designated_initialisers) {
  const std::vector<std::string> records = public_records();
  const std::vector<std::string> rows = initialised_records();
  ASSERT_THAT(records,
              AllOf(Contains("OperationConfig"), Contains("Object"), Contains("CanFrame")));
  for (const std::string& record : records) {
    EXPECT_THAT(rows, Contains(record)) << "no row in tests/headers/designated_initialisers.cpp";
  }
  for (const std::string& row : rows) {
    EXPECT_THAT(records, Contains(row)) << "a row without a public record";
  }
}

}  // namespace
}  // namespace velmora_can_bridge

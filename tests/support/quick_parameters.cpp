// The main of the test programs whose tests with parameters are those of quick_parameters.hpp.

#include "support/quick_parameters.hpp"

#include <cstdio>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace velmora_can_bridge::quick_parameters {
namespace {

struct KeptTest {
  const char* name;
  testing::internal::CodeLocation location;
  MakeFactory make_factory;
};

struct KeptRows {
  const char* prefix;
  VisitRows visit_rows;
};

struct KeptFixture {
  Fixture fixture;
  std::vector<KeptTest> tests;
  std::vector<KeptRows> tables;
};

/// In the order in which the program names them. Made by the first that asks, as variables of other
/// sources may be made before this one's.
std::deque<KeptFixture>& kept_fixtures() {
  static std::deque<KeptFixture> fixtures;
  return fixtures;
}

KeptFixture& kept(const Fixture& fixture) {
  for (KeptFixture& known : kept_fixtures()) {
    if (known.fixture.type == fixture.type) {
      return known;
    }
  }
  return kept_fixtures().emplace_back(KeptFixture{fixture, {}, {}});
}

class Registration : public RowVisitor {
 public:
  Registration(std::string suite, const std::vector<KeptTest>& tests)
      : suite_(std::move(suite)), tests_(tests) {}

  void visit(const std::string& name, const std::string& text, const void* row) override {
    has_rows_ = true;
    for (const KeptTest& test : tests_) {
      testing::internal::MakeAndRegisterTestInfo(
          suite_.c_str(), (std::string(test.name) + "/" + name).c_str(), nullptr,
          text.empty() ? nullptr : text.c_str(), test.location, testing::internal::GetTestTypeId(),
          nullptr, nullptr, test.make_factory(row));
    }
  }

  bool has_rows() const { return has_rows_; }

 private:
  std::string suite_;
  const std::vector<KeptTest>& tests_;
  bool has_rows_ = false;
};

/// False when there is a test without rows, a table without rows or one without a test, which would
/// go unseen.
bool register_tests() {
  bool sound = true;
  for (const KeptFixture& fixture : kept_fixtures()) {
    if (fixture.tests.empty() || fixture.tables.empty()) {
      std::fprintf(stderr, "%s has %s\n", fixture.fixture.name,
                   fixture.tests.empty() ? "rows and no TEST_P"
                                         : "a TEST_P and no INSTANTIATE_TEST_SUITE_P");
      sound = false;
    }
    for (const KeptRows& rows : fixture.tables) {
      Registration registration(std::string(rows.prefix) + "/" + fixture.fixture.name,
                                fixture.tests);
      rows.visit_rows(registration);
      if (!registration.has_rows()) {
        std::fprintf(stderr, "%s has no rows in %s\n", fixture.fixture.name, rows.prefix);
        sound = false;
      }
    }
  }
  return sound;
}

}  // namespace

int add_test(const Fixture& fixture, const char* name, const char* file, int line,
             MakeFactory make_factory) {
  kept(fixture).tests.push_back({name, testing::internal::CodeLocation(file, line), make_factory});
  return 0;
}

int add_rows(const Fixture& fixture, const char* prefix, VisitRows visit_rows) {
  kept(fixture).tables.push_back({prefix, visit_rows});
  return 0;
}

}  // namespace velmora_can_bridge::quick_parameters

int main(int argc, char** argv) {
  if (!velmora_can_bridge::quick_parameters::register_tests()) {
    return 1;
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

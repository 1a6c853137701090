#pragma once

// GoogleTest's TEST_P and INSTANTIATE_TEST_SUITE_P over again, for the builds that are to compile
// quickly: its own make a registry of some 400 functions for each fixture, up to a third of what a
// test source costs. Here a fixture costs a few, as the registry knows rows by their address alone.
// The tests and their names are the same. The builds that compile each source alone have
// GoogleTest's own, which also refuse the name of a row that is there twice.

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>

namespace velmora_can_bridge::quick_parameters {

/// Makes what makes one test of one row, which it copies.
using MakeFactory = testing::internal::TestFactoryBase* (*)(const void* row);

/// Is shown the rows of a table.
class RowVisitor {
 public:
  virtual ~RowVisitor() = default;
  virtual void visit(const std::string& name, const std::string& text, const void* row) = 0;
};

/// Shows each row of a table.
using VisitRows = void (*)(RowVisitor& visitor);

/// A fixture, as a test or a table names it.
struct Fixture {
  testing::internal::TypeId type;
  const char* name;
};

/// Keep a test and a table until main makes a test of each row. They return 0, for a variable to
/// hold.
int add_test(const Fixture& fixture, const char* name, const char* file, int line,
             MakeFactory make_factory);
int add_rows(const Fixture& fixture, const char* prefix, VisitRows visit_rows);

template <typename Test>
testing::internal::TestFactoryBase* make_factory(const void* row) {
  return new testing::internal::ParameterizedTestFactory<Test>(
      *static_cast<const typename Test::ParamType*>(row));
}

/// What a failure shows of a row beside its name: what a PrintTo of the row's own says.
template <typename Row>
auto row_text(const Row& row, int /*preferred*/)
    -> decltype(PrintTo(row, static_cast<std::ostream*>(nullptr)), std::string()) {
  std::ostringstream text;
  PrintTo(row, &text);
  return text.str();
}
template <typename Row>
std::string row_text(const Row& /*row*/, long /*otherwise*/) {
  return {};
}

template <typename Row, typename Name>
void visit_rows(RowVisitor& visitor, const testing::internal::ParamGenerator<Row>& rows,
                const Name& name) {
  std::size_t index = 0;
  for (const Row& row : rows) {
    visitor.visit(name(testing::TestParamInfo<Row>(row, index)), row_text(row, 0), &row);
    ++index;
  }
}

}  // namespace velmora_can_bridge::quick_parameters

#define QUICK_PARAMETERS_FIXTURE(fixture) \
  { ::testing::internal::GetTypeId<fixture>(), #fixture }

#undef TEST_P
#define TEST_P(fixture, test)                                                                  \
  class GTEST_TEST_CLASS_NAME_(fixture, test) : public fixture {                               \
   public:                                                                                     \
    void TestBody() override;                                                                  \
    static const int added;                                                                    \
  };                                                                                           \
  const int GTEST_TEST_CLASS_NAME_(fixture, test)::added =                                     \
      ::velmora_can_bridge::quick_parameters::add_test(                                        \
          QUICK_PARAMETERS_FIXTURE(fixture), #test, __FILE__, __LINE__,                        \
          ::velmora_can_bridge::quick_parameters::make_factory<GTEST_TEST_CLASS_NAME_(fixture, \
                                                                                      test)>); \
  void GTEST_TEST_CLASS_NAME_(fixture, test)::TestBody()

#undef INSTANTIATE_TEST_SUITE_P
#define INSTANTIATE_TEST_SUITE_P(prefix, fixture, ...)                                      \
  static const int quick_parameters_##prefix##_##fixture =                                  \
      ::velmora_can_bridge::quick_parameters::add_rows(                                     \
          QUICK_PARAMETERS_FIXTURE(fixture), #prefix,                                       \
          [](::velmora_can_bridge::quick_parameters::RowVisitor& to) {                      \
            ::velmora_can_bridge::quick_parameters::visit_rows<fixture::ParamType>(         \
                to, GTEST_EXPAND_(GTEST_GET_FIRST_(__VA_ARGS__, DUMMY_PARAM_)),             \
                GTEST_EXPAND_(GTEST_GET_SECOND_(                                            \
                    __VA_ARGS__, ::testing::internal::DefaultParamName<fixture::ParamType>, \
                    DUMMY_PARAM_)));                                                        \
          })

#include "velmora_can_bridge/config/operation_kinds.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "problem_texts.hpp"
#include "support/controller_test.hpp"

namespace velmora_can_bridge {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;
using testing::IsNull;
using testing::IsSubsetOf;
using testing::Not;
using testing::NotNull;
using testing::StartsWith;

class EveryKind : public testing::TestWithParam<OperationKind> {};

TEST_P(EveryKind, is_known_to_the_controller) {
  const std::uint8_t node_id = 5;
  ScriptedBackend backend;
  const BoardConfig board;
  CanOpenNodeController controller(node_id, backend, board);
  OperationConfig op;
  op.kind = GetParam().kind;
  EXPECT_THAT(controller.execute_configured_operation(op, "device", {}).message,
              Not(StartsWith("Unknown operation kind: ")));
}

TEST_P(EveryKind, is_found_by_name) {
  const OperationKind* found = find_operation_kind(GetParam().kind);
  ASSERT_THAT(found, NotNull());
  EXPECT_EQ(found->kind, GetParam().kind);
}

TEST_P(EveryKind, reads_what_it_requires) {
  EXPECT_THAT(GetParam().required, IsSubsetOf(GetParam().members));
}

TEST_P(EveryKind, names_members_that_a_board_file_knows) {
  std::string yaml = "nodes: [{node_id: 1, operations: {op: {kind: " + std::string(GetParam().kind);
  for (const std::string_view member : GetParam().members) {
    yaml += ", " + std::string(member) + ": 0";
  }
  yaml += "}}}]";
  const Texts problems = texts_of(parse_board(yaml).problems);
  EXPECT_THAT(problems, Each(Not(AnyOf(HasSubstr("unknown key"), HasSubstr("does not read")))));
}

TEST_P(EveryKind, describes_its_payload) { EXPECT_NE(GetParam().describe_payload({}, {}), ""); }

INSTANTIATE_TEST_SUITE_P(of, EveryKind, testing::ValuesIn(operation_kinds()),
                         [](const auto& row) { return std::string(row.param.kind); });

TEST(OperationKinds, stand_once_each) {
  std::set<std::string_view> kinds;
  for (const OperationKind& row : operation_kinds()) {
    EXPECT_TRUE(kinds.insert(row.kind).second) << row.kind;
  }
}

TEST(OperationKinds, are_compared_byte_for_byte) {
  for (const char* kind : {"", "SDO_READ", "sdo_read ", "sdo_rea"}) {
    EXPECT_THAT(find_operation_kind(kind), IsNull()) << kind;
  }
}

struct PayloadCase {
  std::string name;
  OperationConfig op;
  std::string description;
};

void PrintTo(const PayloadCase& row, std::ostream* out) { *out << row.name; }

OperationConfig sdo_write(const std::string& data_type, const Bytes& fixed_data = {},
                          const Bytes& default_data = {}, std::uint8_t subindex_in_payload = 0) {
  OperationConfig op;
  op.kind = "sdo_write";
  op.data_type = data_type;
  op.fixed_data = fixed_data;
  op.default_data = default_data;
  op.subindex_in_payload = subindex_in_payload;
  return op;
}

OperationConfig of_kind(const std::string& kind) {
  OperationConfig op;
  op.kind = kind;
  return op;
}

class Payload : public testing::TestWithParam<PayloadCase> {};

TEST_P(Payload, is_described) {
  const OperationKind* kind = find_operation_kind(GetParam().op.kind);
  ASSERT_THAT(kind, NotNull());
  EXPECT_EQ(kind->describe_payload(GetParam().op, {}), GetParam().description);
}

INSTANTIATE_TEST_SUITE_P(
    of, Payload,
    testing::Values(
        PayloadCase{"sdo_read", of_kind("sdo_read"), "none"},
        PayloadCase{"read_multi", of_kind("read_multi"), "none"},
        PayloadCase{"no_type", sdo_write(""), "raw (any length)"},
        PayloadCase{"raw", sdo_write("raw"), "raw (any length)"},
        PayloadCase{"u8", sdo_write("u8"), "u8 (1 byte)"},
        PayloadCase{"s16", sdo_write("s16"), "s16 (2 bytes)"},
        PayloadCase{"u32", sdo_write("u32"), "u32 (4 bytes)"},
        PayloadCase{"unknown_type", sdo_write("U16"), "none is accepted (unknown data type)"},
        PayloadCase{"fixed", sdo_write("u16", {1, 0xAB}, {7}), "ignored (always writes 01 AB)"},
        PayloadCase{"with_default", sdo_write("u16", {}, {7}), "u16 (2 bytes), or none for 07"},
        PayloadCase{"sub_index_before_all_others", sdo_write("u16", {1}, {7}, 1),
                    "sub-index (1 byte), data (any length)"}),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge

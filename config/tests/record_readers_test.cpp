#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "problem_texts.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;

class LoadedNode : public testing::Test {
 protected:
  void SetUp() override { load(); }

  // Every member of every record, each with a value of its own.
  void load() {
    const LoadedBoard loaded = parse_board(R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      claw: {profile: claw, base_index: 0x7040, homing_record: 0x2100}
    pdos:
      - number: 3
        direction: RPDO
        mappings:
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: red}
          - {index: 0x2001, bit_length: 16, field: green}
      - {number: 255, direction: TPDO, cob_id: 0x185, transmission: 240, shared_cob_id: true, mappings: []}
    operations:
      everything:
        kind: sdo_write
        label: A label
        description: A description
        option_flag: true
        transport: pdo
        index: 0xFFFF
        sub_index: 255
        subindex_in_payload: 1
        sub_indices: [1, 0x02, 255]
        fixed_data: [3]
        default_data: [4, 5]
        data_type: s16
        field: red
        pdo_number: 3
        refresh_shadow: true
        bit_index: 7
        named: 1
        fields: [green, red]
        index_offset: 0x43
        action: home
        led_operation: set_mode
        pump_pdo_number: 3
        rpdo_channels: [6]
        sdo_channels: [7, 8]
      nothing: {kind: sdo_read, index: 0}
  - node_id: 127
)");
    ASSERT_TRUE(loaded.file.has_value()) << testing::PrintToString(texts_of(loaded.problems));
    ASSERT_THAT(loaded.file->nodes, SizeIs(2));
    file = *loaded.file;
  }

  BoardFile file;
};

TEST_F(LoadedNode, has_its_id) {
  EXPECT_EQ(file.nodes[0].node_id, 0x10);
  EXPECT_EQ(file.nodes[1].node_id, 127);
}

TEST_F(LoadedNode, has_its_devices) {
  const auto& devices = file.nodes[0].board.device_od_map;
  ASSERT_THAT(devices, SizeIs(2));
  EXPECT_EQ(devices.at("wheel").profile, "ci402");
  EXPECT_EQ(devices.at("wheel").base_index, 0x6040);
  EXPECT_EQ(devices.at("wheel").homing_record, 0);
  EXPECT_EQ(devices.at("claw").profile, "claw");
  EXPECT_EQ(devices.at("claw").base_index, 0x7040);
  EXPECT_EQ(devices.at("claw").homing_record, 0x2100);
}

TEST_F(LoadedNode, has_its_pdos_in_order) {
  const std::vector<PdoConfig>& pdos = file.nodes[0].board.pdos;
  ASSERT_THAT(pdos, SizeIs(2));
  EXPECT_EQ(pdos[0].number, 3);
  EXPECT_EQ(pdos[0].direction, "RPDO");
  EXPECT_EQ(pdos[1].number, 255);
  EXPECT_EQ(pdos[0].cob_id, 0);
  EXPECT_EQ(pdos[1].direction, "TPDO");
  EXPECT_EQ(pdos[1].cob_id, 0x185);
  EXPECT_EQ(pdos[0].transmission, std::nullopt);
  EXPECT_EQ(pdos[1].transmission, 240);
  EXPECT_FALSE(pdos[0].shared_cob_id);
  EXPECT_TRUE(pdos[1].shared_cob_id);
  EXPECT_THAT(pdos[1].mappings, IsEmpty());
}

TEST_F(LoadedNode, has_its_mappings_in_order) {
  const std::vector<PdoMapping>& mappings = file.nodes[0].board.pdos[0].mappings;
  ASSERT_THAT(mappings, SizeIs(2));
  EXPECT_EQ(mappings[0].index, 0x2000);
  EXPECT_EQ(mappings[0].sub_index, 1);
  EXPECT_EQ(mappings[0].bit_length, 8);
  EXPECT_EQ(mappings[0].field, "red");
  EXPECT_EQ(mappings[1].index, 0x2001);
  EXPECT_EQ(mappings[1].sub_index, 0);
  EXPECT_EQ(mappings[1].bit_length, 16);
  EXPECT_EQ(mappings[1].field, "green");
}

TEST_F(LoadedNode, has_its_operations_by_name) {
  EXPECT_THAT(file.nodes[0].operations, SizeIs(2));
  EXPECT_EQ(file.nodes[0].operations.count("everything"), 1U);
  EXPECT_EQ(file.nodes[0].operations.count("nothing"), 1U);
}

TEST_F(LoadedNode, has_the_texts_of_an_operation) {
  const OperationConfig& op = file.nodes[0].operations.at("everything");
  EXPECT_EQ(op.kind, "sdo_write");
  EXPECT_EQ(op.label, "A label");
  EXPECT_EQ(op.description, "A description");
  EXPECT_EQ(op.transport, "pdo");
  EXPECT_EQ(op.data_type, "s16");
  EXPECT_EQ(op.field, "red");
  EXPECT_EQ(op.action, "home");
  EXPECT_EQ(op.led_operation, "set_mode");
  EXPECT_THAT(op.fields, ElementsAre("green", "red"));
}

TEST_F(LoadedNode, has_the_numbers_of_an_operation) {
  const OperationConfig& op = file.nodes[0].operations.at("everything");
  EXPECT_EQ(op.option_flag, 1);
  EXPECT_EQ(op.index, 0xFFFF);
  EXPECT_EQ(op.sub_index, 255);
  EXPECT_EQ(op.subindex_in_payload, 1);
  EXPECT_EQ(op.pdo_number, 3);
  EXPECT_EQ(op.refresh_shadow, 1);
  EXPECT_EQ(op.bit_index, 7);
  EXPECT_EQ(op.named, 1);
  EXPECT_EQ(op.index_offset, 0x43);
  EXPECT_EQ(op.pump_pdo_number, 3);
}

TEST_F(LoadedNode, has_the_bytes_of_an_operation) {
  const OperationConfig& op = file.nodes[0].operations.at("everything");
  EXPECT_EQ(op.sub_indices, (Bytes{1, 2, 255}));
  EXPECT_EQ(op.fixed_data, (Bytes{3}));
  EXPECT_EQ(op.default_data, (Bytes{4, 5}));
  EXPECT_EQ(op.rpdo_channels, (Bytes{6}));
  EXPECT_EQ(op.sdo_channels, (Bytes{7, 8}));
}

TEST_F(LoadedNode, has_defaults_for_what_is_left_out) {
  const OperationConfig& op = file.nodes[0].operations.at("nothing");
  EXPECT_EQ(op.transport + op.data_type + op.field + op.action + op.led_operation, "");
  EXPECT_EQ(op.option_flag + op.sub_index + op.subindex_in_payload + op.pdo_number, 0);
  EXPECT_THAT(op.sub_indices, IsEmpty());
  EXPECT_THAT(file.nodes[1].board.pdos, IsEmpty());
  EXPECT_THAT(file.nodes[1].board.device_od_map, IsEmpty());
  EXPECT_THAT(file.nodes[1].operations, IsEmpty());
}

class MemberProblems : public testing::TestWithParam<ProblemCase> {};

TEST_P(MemberProblems, of) {
  const LoadedBoard loaded = parse_board(GetParam().yaml);
  EXPECT_EQ(texts_of(loaded.problems), GetParam().problems);
}

// Each of these puts the keys of one record into a file, on a line of their own.
ProblemCase node(const std::string& name, const std::string& keys, const Texts& problems) {
  return {name, "nodes: [{\n" + keys + "\n}]", problems};
}

ProblemCase device(const std::string& name, const std::string& keys, const Texts& problems) {
  return node(name, "node_id: 1, device_od_map: {a: {\n" + keys + "\n}}", problems);
}

ProblemCase pdo(const std::string& name, const std::string& keys, const Texts& problems) {
  return node(name, "node_id: 1, pdos: [{\n" + keys + "\n}]", problems);
}

ProblemCase mapping(const std::string& name, const std::string& keys, const Texts& problems) {
  return pdo(name, "number: 1, direction: RPDO, mappings: [{\n" + keys + "\n}]", problems);
}

ProblemCase operation(const std::string& name, const std::string& keys, const Texts& problems) {
  return node(name, "node_id: 1, operations: {a: {\n" + keys + "\n}}", problems);
}

/// An index, which stands at 3:24, its key at 3:17.
ProblemCase index(const std::string& name, const std::string& value, const std::string& found) {
  const std::string message = "3:24: error: index: expected a number from 0 to 0xFFFF, found ";
  return operation(name, "kind: sdo_read, index: " + value,
                   found.empty() ? Texts{} : Texts{message + found});
}

/// A flag, which stands at 3:40, its key at 3:27.
ProblemCase flag(const std::string& name, const std::string& value, const std::string& found) {
  const std::string message = "3:40: error: option_flag: expected true, false, 1 or 0, found ";
  return operation(name, "kind: sdo_read, index: 1, option_flag: " + value,
                   found.empty() ? Texts{} : Texts{message + found});
}

/// A text, which stands at 3:34, its key at 3:27.
ProblemCase label(const std::string& name, const std::string& value, const std::string& found) {
  const std::string message = "3:34: error: label: expected a text, found ";
  return operation(name, "kind: sdo_read, index: 1, label: " + value,
                   found.empty() ? Texts{} : Texts{message + found});
}

/// A list of bytes, which stands at 3:42, its key at 3:29.
ProblemCase bytes(const std::string& name, const std::string& value, const Texts& problems) {
  return operation(name, "kind: read_multi, index: 1, sub_indices: " + value, problems);
}

INSTANTIATE_TEST_SUITE_P(
    number, MemberProblems,
    testing::Values(
        index("zero", "0", ""), index("decimal", "65535", ""), index("hexadecimal", "0xfFfF", ""),
        index("hexadecimal_zeros", "0x00001", ""), index("too_large", "65536", "\"65536\""),
        index("too_large_hexadecimal", "0x10000", "\"0x10000\""),
        index("larger_than_any_register", "18446744073709551616", "\"18446744073709551616\""),
        index("negative", "-1", "\"-1\""), index("with_plus", "+1", "\"+1\""),
        index("negative_hexadecimal", "0x-1", "\"0x-1\""), index("fraction", "1.0", "\"1.0\""),
        index("exponent", "1e3", "\"1e3\" (a hexadecimal number is written 0x1e3)"),
        index("octal", "0o17", "\"0o17\""), index("underscore", "1_0", "\"1_0\""),
        index("no_digits", "0x", "\"0x\""),
        index("upper_case_prefix", "0X10", "\"0X10\" (a hexadecimal number is written 0x10)"),
        index("no_prefix", "60FF", "\"60FF\" (a hexadecimal number is written 0x60FF)"),
        index("suffix", "6041h", "\"6041h\" (a hexadecimal number is written 0x6041)"),
        index("suffix_of_a_word", "1xh", "\"1xh\""), index("no_hexadecimal", "0xG", "\"0xG\""),
        index("boolean", "true", "\"true\""), index("word", "abc", "\"abc\""),
        index("leading_zero", "010", "\"010\" (a number has no leading zeros)"),
        index("zero_twice", "00", "\"00\" (a number has no leading zeros)"),
        index("quoted", "'5'", "the text \"5\" (a number has no quotes)"),
        index("quoted_word", "'x'", "the text \"x\""), index("list", "[1]", "a list"),
        index("map", "{1: 2}", "a map"),
        operation("null", "kind: sdo_read, index: ~",
                  {"3:17: error: index: expected a number from 0 to 0xFFFF, found nothing"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    flag, MemberProblems,
    testing::Values(
        flag("true", "true", ""), flag("false", "false", ""), flag("zero", "0", ""),
        flag("one", "1", ""), flag("two", "2", "\"2\""), flag("yes", "yes", "\"yes\""),
        flag("upper_case", "True", "\"True\""), flag("quoted", "'true'", "the text \"true\""),
        flag("list", "[]", "a list"),
        operation("null", "kind: sdo_read, index: 1, option_flag: ~",
                  {"3:27: error: option_flag: expected true, false, 1 or 0, found nothing"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    text, MemberProblems,
    testing::Values(label("plain", "a b", ""), label("quoted", "''", ""), label("number", "5", ""),
                    label("list", "[a]", "a list"), label("map", "{a: b}", "a map"),
                    operation("null", "kind: sdo_read, index: 1, label: null",
                              {"3:27: error: label: expected a text, found nothing"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    list, MemberProblems,
    testing::Values(
        bytes("empty", "[]",
              {"3:42: warning: sub_indices: names nothing to read, write the sub-indices of the "
               "object"}),
        bytes("full_range", "[0, 255]", {}),
        bytes("number", "1", {"3:42: error: sub_indices: expected a list, found \"1\""}),
        bytes("null", "~", {"3:29: error: sub_indices: expected a list, found nothing"}),
        bytes("map", "{}", {"3:42: error: sub_indices: expected a list, found a map"}),
        bytes("elements", "[1, 256, x, [2]]",
              {"3:46: error: sub_indices: expected a number from 0 to 255, found \"256\"",
               "3:51: error: sub_indices: expected a number from 0 to 255, found \"x\"",
               "3:54: error: sub_indices: expected a number from 0 to 255, found a list"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    file, MemberProblems,
    testing::Values(
        ProblemCase{"scalar", "robot", {"1:1: error: board file: expected a map, found \"robot\""}},
        ProblemCase{"list", "- a", {"1:1: error: board file: expected a map, found a list"}},
        ProblemCase{"without_nodes", "{}", {"1:1: error: board file: missing key \"nodes\""}},
        ProblemCase{
            "without_any_node", "nodes: []", {"1:8: error: nodes: expected at least one node"}},
        ProblemCase{"map_of_nodes",
                    "nodes: {a: {node_id: 1}}",
                    {"1:8: error: nodes: expected a list, found a map"}},
        ProblemCase{"nothing", "nodes:", {"1:1: error: nodes: expected a list, found nothing"}},
        ProblemCase{"slip",
                    "node: []\n",
                    {"1:1: error: board file: unknown key \"node\", did you mean \"nodes\"?",
                     "1:1: error: board file: missing key \"nodes\""}},
        ProblemCase{"merge_key",
                    "<<: {}\nnodes: [{node_id: 1}]",
                    {"1:1: error: board file: unknown key \"<<\", there are no merge keys; write "
                     "the keys out, or let an alias stand for all of a value"}}),
    RowName());

/// A key of a mapping that there is not, at 4:28.
ProblemCase unknown_key(const std::string& name, const std::string& key,
                        const std::string& advice) {
  return mapping(name, "index: 1, bit_length: 8,   " + key,
                 {"4:28: error: mapping: unknown key " + advice});
}

INSTANTIATE_TEST_SUITE_P(
    unknown_key, MemberProblems,
    testing::Values(
        unknown_key("short", "sub: 1", "\"sub\", did you mean \"sub_index\"?"),
        unknown_key("in_other_words", "Min: 1", "\"Min\", did you mean \"minimum\"?"),
        unknown_key("name", "name: a", "\"name\", did you mean \"field\"?"),
        unknown_key("meant_elsewhere", "pdo: 1", "\"pdo\""),
        unknown_key("merge_key", "<<: 1",
                    "\"<<\", there are no merge keys; write the keys out, or let an alias stand "
                    "for all of a value"),
        unknown_key("without_blank", "sub_index:0x1, field: a",
                    "\"sub_index:0x1\", write a blank behind the colon: \"sub_index: 0x1\"")),
    RowName());

/// Data to write, which stands at 3:41.
ProblemCase data(const std::string& name, const std::string& value, const std::string& problem) {
  return operation(
      name, "kind: sdo_write, index: 1, fixed_data: " + value,
      problem.empty()
          ? Texts{}
          : Texts{"3:41: error: fixed_data: expected a number from 0 to 255, found " + problem});
}

INSTANTIATE_TEST_SUITE_P(
    data, MemberProblems,
    testing::Values(data("bytes", "[0, 255]", ""),
                    data("two_bytes", "[1000]",
                         "\"1000\" (it has two bytes, the low one first: 0xE8, 0x03)"),
                    data("hexadecimal", "[0x1234]",
                         "\"0x1234\" (it has two bytes, the low one first: 0x34, 0x12)"),
                    data("many_bytes", "[65536]", "\"65536\""), data("word", "[x]", "\"x\"")),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    node, MemberProblems,
    testing::Values(
        node("lowest_id", "node_id: 1", {}), node("highest_id", "node_id: 127", {}),
        node("id_zero", "node_id: 0",
             {"2:10: error: node_id: expected a number from 1 to 127, found \"0\""}),
        node("id_too_high", "node_id: 128",
             {"2:10: error: node_id: expected a number from 1 to 127, found \"128\""}),
        node("without_id", "pdos: []", {"1:9: error: node: missing key \"node_id\""}),
        node("slip", "node_id: 1, operation: {}",
             {"2:13: error: node: unknown key \"operation\", did you mean \"operations\"?"}),
        node("devices_as_list", "node_id: 1, device_od_map: [a]",
             {"2:28: error: device_od_map: expected a map from names to records, found a list"}),
        node("operations_as_text", "node_id: 1, operations: a",
             {"2:25: error: operations: expected a map from names to records, found \"a\""}),
        node("pdos_as_map", "node_id: 1, pdos: {}",
             {"2:19: error: pdos: expected a list, found a map"}),
        ProblemCase{"as_text", "nodes: [a]", {"1:9: error: node: expected a map, found \"a\""}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    device, MemberProblems,
    testing::Values(
        device("plain", "base_index: 0", {}),
        device("no_profile", "base_index: 0, profile: ''", {}),
        device("io", "base_index: 0, profile: io", {}),
        device("without_base", "profile: io", {"2:32: error: device: missing key \"base_index\""}),
        device("profile", "base_index: 0, profile: CI402",
               {"3:25: error: profile: expected \"\", \"ci402\", \"claw\" or \"io\", found "
                "\"CI402\", did you mean \"ci402\"?"}),
        device("homing_record", "base_index: 0, homing_record: x",
               {"3:31: error: homing_record: expected a number from 0 to 0xFFFF, found \"x\""}),
        device("slip", "base_index: 0, homing_rekord: 1",
               {"3:16: error: device: unknown key \"homing_rekord\", did you mean "
                "\"homing_record\"?"}),
        node("as_text", "node_id: 1, device_od_map: {a: b}",
             {"2:32: error: device: expected a map, found \"b\""}),
        node("without_name", "node_id: 1, device_od_map: {'': {base_index: 1}}",
             {"2:29: error: device_od_map: a name is empty"})),
    RowName());

std::string cob_id_problem(const std::string& found) {
  return "3:37: error: cob_id: expected an identifier that PDOs may have, 0x181 to 0x57F or 0x680 "
         "to 0x6DF, found " +
         found;
}

std::string transmission_problem(const std::string& found) {
  return "3:43: error: transmission: expected a transmission type, 0 to 240, 254 or 255, for a "
         "TPDO also 252 or 253, found " +
         found;
}

INSTANTIATE_TEST_SUITE_P(
    pdo, MemberProblems,
    testing::Values(
        pdo("rpdo", "number: 1, direction: RPDO, mappings: []", {}),
        pdo("tpdo", "number: 255, direction: 'TPDO', mappings: []", {}),
        pdo("empty", "",
            {"2:20: error: pdo: missing key \"number\"",
             "2:20: error: pdo: missing key \"direction\"",
             "2:20: error: pdo: missing key \"mappings\""}),
        pdo("number_zero", "number: 0, direction: RPDO, mappings: []",
            {"3:9: error: number: expected a number from 1 to 255, found \"0\""}),
        pdo("number_too_large", "number: 256, direction: RPDO, mappings: []",
            {"3:9: error: number: expected a number from 1 to 255, found \"256\""}),
        pdo("cob_ids_at_the_ends_of_their_ranges",
            "number: 1, direction: RPDO, cob_id: 0x181, mappings: []\n"
            "}, {number: 2, direction: RPDO, cob_id: 0x57F, mappings: []\n"
            "}, {number: 3, direction: RPDO, cob_id: 0x680, mappings: []\n"
            "}, {number: 4, direction: TPDO, cob_id: 0x6DF, mappings: []",
            {}),
        pdo("cob_id_below", "number: 1, direction: RPDO, cob_id: 0x180, mappings: []",
            {cob_id_problem("\"0x180\"")}),
        pdo("cob_id_of_sdo_answers", "number: 1, direction: RPDO, cob_id: 0x580, mappings: []",
            {cob_id_problem("\"0x580\"")}),
        pdo("cob_id_of_sdo_requests", "number: 1, direction: RPDO, cob_id: 0x67F, mappings: []",
            {cob_id_problem("\"0x67F\"")}),
        pdo("cob_id_above", "number: 1, direction: RPDO, cob_id: 0x6E0, mappings: []",
            {cob_id_problem("\"0x6E0\"")}),
        pdo("cob_id_zero", "number: 1, direction: RPDO, cob_id: 0, mappings: []",
            {cob_id_problem("\"0\"")}),
        pdo("cob_id_as_text", "number: 1, direction: RPDO, cob_id: x, mappings: []",
            {cob_id_problem("\"x\"")}),
        pdo("transmission_between_the_types",
            "number: 1, direction: RPDO, transmission: 241, mappings: []",
            {transmission_problem("\"241\"")}),
        pdo("transmission_reserved", "number: 1, direction: TPDO, transmission: 251, mappings: []",
            {transmission_problem("\"251\"")}),
        pdo("transmission_too_large", "number: 1, direction: TPDO, transmission: 256, mappings: []",
            {transmission_problem("\"256\"")}),
        pdo("transmission_as_text", "number: 1, direction: TPDO, transmission: sync, mappings: []",
            {transmission_problem("\"sync\"")}),
        pdo("shared_cob_id", "number: 1, direction: TPDO, shared_cob_id: 2, mappings: []",
            {"3:44: error: shared_cob_id: expected true, false, 1 or 0, found "
             "\"2\""}),
        pdo("direction", "number: 1, direction: rpdo, mappings: []",
            {"3:23: error: direction: expected \"RPDO\" or \"TPDO\", found \"rpdo\", did you mean "
             "\"RPDO\"?"}),
        pdo("direction_as_list", "number: 1, direction: [RPDO], mappings: []",
            {"3:23: error: direction: expected \"RPDO\" or \"TPDO\", found a list"}),
        pdo("mappings", "number: 1, direction: RPDO, mappings: {}",
            {"3:39: error: mappings: expected a list, found a map"})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    mapping, MemberProblems,
    testing::Values(
        mapping("plain", "index: 1, bit_length: 64", {}),
        mapping("full", "index: 0xFFFF, sub_index: 255, bit_length: 8, field: a", {}),
        mapping("empty", "",
                {"3:40: error: mapping: missing key \"index\"",
                 "3:40: error: mapping: missing key \"bit_length\""}),
        mapping("index_zero", "index: 0, bit_length: 8",
                {"4:8: error: index: expected a number from 1 to 0xFFFF, found \"0\""}),
        mapping("no_bits", "index: 1, bit_length: 0",
                {"4:23: error: bit_length: expected a number from 1 to 64, found \"0\""}),
        mapping("too_many_bits", "index: 1, bit_length: 65",
                {"4:23: error: bit_length: expected a number from 1 to 64, found \"65\""}),
        mapping("sub_index", "index: 1, sub_index: 256, bit_length: 8",
                {"4:22: error: sub_index: expected a number from 0 to 255, found \"256\""}),
        mapping("field", "index: 1, bit_length: 8, field: []",
                {"4:33: error: field: expected a text, found a list"}),
        pdo("as_number", "number: 1, direction: RPDO, mappings: [5]",
            {"3:40: error: mapping: expected a map, found \"5\""})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    operation, MemberProblems,
    testing::Values(
        operation("without_kind", "index: 1", {"2:29: error: operation: missing key \"kind\""}),
        operation("unknown_kind", "kind: sdo_raed, index: 1",
                  {"3:7: error: kind: expected " + all_kinds +
                   ", found \"sdo_raed\", did you mean \"sdo_read\"?"}),
        operation("kind_as_map", "kind: {}",
                  {"3:7: error: kind: expected " + all_kinds + ", found a map"}),
        operation("sdo_read_without_index", "kind: sdo_read",
                  {"2:29: error: operation: missing key \"index\", which sdo_read needs"}),
        operation("sdo_write_without_index", "kind: sdo_write",
                  {"2:29: error: operation: missing key \"index\", which sdo_write needs"}),
        operation("read_multi_without_anything", "kind: read_multi",
                  {"2:29: error: operation: missing key \"index\", which read_multi needs",
                   "2:29: error: operation: missing key \"sub_indices\", which read_multi needs"}),
        operation("unread_members", "kind: sdo_read, index: 1, named: 1, data_type: u8",
                  {"3:27: warning: operation: sdo_read does not read \"named\"",
                   "3:37: warning: operation: sdo_read does not read \"data_type\""}),
        operation("free_members",
                  "kind: sdo_read, index: 1, label: a, description: b, option_flag: true", {}),
        operation("slip", "kind: sdo_read, index: 1, sub_indx: 1",
                  {"3:27: error: operation: unknown key \"sub_indx\", did you mean "
                   "\"sub_index\"?"}),
        operation("foreign_key", "kind: sdo_read, index: 1, colour: 1",
                  {"3:27: error: operation: unknown key \"colour\""}),
        operation("key_with_escape", "kind: sdo_read, index: 1, \"\\e[2J\": 1",
                  {"3:27: error: operation: unknown key \"\\x1B[2J\""}),
        operation("transport", "kind: sdo_read, index: 1, transport: SDO",
                  {"3:27: warning: operation: sdo_read does not read \"transport\"",
                   "3:38: error: transport: expected \"\", \"sdo\" or \"pdo\", found \"SDO\", did "
                   "you mean \"sdo\"?"}),
        operation("data_type", "kind: sdo_write, index: 1, data_type: U16",
                  {"3:39: error: data_type: expected \"\", \"raw\", \"u8\", \"s8\", \"u16\", "
                   "\"s16\", \"u32\" or \"s32\", found \"U16\", did you mean \"u16\"?"}),
        operation("bit_index", "kind: sdo_read, index: 1, bit_index: 8",
                  {"3:27: warning: operation: sdo_read does not read \"bit_index\"",
                   "3:38: error: bit_index: expected a number from 0 to 7, found \"8\""}),
        operation("action", "kind: sdo_read, index: 1, action: Extend",
                  {"3:27: warning: operation: sdo_read does not read \"action\"",
                   "3:35: error: action: expected \"extend\", \"home\" or \"query\", found "
                   "\"Extend\", did you mean \"extend\"?"}),
        operation("led_operation", "kind: sdo_read, index: 1, led_operation: ''",
                  {"3:27: warning: operation: sdo_read does not read \"led_operation\"",
                   "3:42: error: led_operation: expected \"set_led\", \"set_color\" or "
                   "\"set_mode\", found the text \"\""}),
        node("as_null", "node_id: 1, operations: {a: }",
             {"2:26: error: operation: expected a map, found nothing"}),
        node("without_name", "node_id: 1, operations: {'': {kind: sdo_read, index: 1}}",
             {"2:26: error: operations: a name is empty"})),
    RowName());

TEST(OperationKinds, read_members_that_a_board_file_knows) {
  for (const OperationKind& row : operation_kinds) {
    SCOPED_TRACE(row.kind);
    std::string yaml = "nodes: [{node_id: 1, operations: {op: {kind: " + std::string(row.kind);
    for (const std::string_view member : row.members) {
      yaml += ", " + std::string(member) + ": 0";
    }
    const Texts problems = texts_of(parse_board(yaml + "}}}]").problems);
    EXPECT_THAT(problems, Each(Not(AnyOf(HasSubstr("unknown key"), HasSubstr("does not read")))));
  }
}

}  // namespace
}  // namespace velmora_can_bridge

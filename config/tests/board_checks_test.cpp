#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "problem_texts.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

class BoardProblems : public testing::TestWithParam<ProblemCase> {};

TEST_P(BoardProblems, of) {
  EXPECT_EQ(texts_of(parse_board(GetParam().yaml).problems), GetParam().problems);
}

INSTANTIATE_TEST_SUITE_P(
    names, BoardProblems,
    testing::Values(
        ProblemCase{"node_id_twice",
                    "nodes: [{node_id: 16},\n{node_id: 2},\n{node_id: 0x10}]",
                    {"3:11: error: node_id 16 stands twice, first in line 1"}},
        ProblemCase{"unreadable_node_ids",
                    "nodes: [{node_id: 0},\n{node_id: 0}]",
                    {"1:19: error: node_id: expected a number from 1 to 127, found \"0\"",
                     "2:11: error: node_id: expected a number from 1 to 127, found \"0\""}},
        ProblemCase{"device_in_two_nodes",
                    "nodes:\n"
                    "  - {node_id: 1, device_od_map: {a: {base_index: 1}, b: {base_index: 1}}}\n"
                    "  - {node_id: 2, device_od_map: {A: {base_index: 1}, b: {base_index: 1}}}\n",
                    {"3:54: error: device \"b\" stands twice, first in line 2"}},
        ProblemCase{"device_twice_in_a_node",
                    "nodes:\n"
                    "  - {node_id: 1, device_od_map: {a: {base_index: 1}, a: {base_index: 1}}}\n",
                    {"2:54: error: key \"a\" stands twice, first in line 2"}},
        ProblemCase{"operation_twice_in_a_node",
                    "nodes:\n"
                    "  - node_id: 1\n"
                    "    operations:\n"
                    "      a: {kind: sdo_read, index: 1}\n"
                    "      a: {kind: sdo_read, index: 2}\n",
                    {"5:7: error: key \"a\" stands twice, first in line 4"}},
        ProblemCase{"operation_in_two_nodes",
                    "nodes:\n"
                    "  - {node_id: 1, operations: {a: {kind: sdo_read, index: 1}}}\n"
                    "  - {node_id: 2, operations: {a: {kind: sdo_read, index: 1}}}\n",
                    {}},
        ProblemCase{"node_that_an_alias_repeats",
                    "nodes: [&a {node_id: 1}, *a]",
                    {"1:22: error: node_id 1 stands twice, first in line 1"}}),
    RowName());

/// A node with these PDOs, the first of which stands in line 4.
ProblemCase pdos(const std::string& name, const std::string& lines, const Texts& problems) {
  return {name, "nodes:\n  - node_id: 1\n    pdos:\n" + lines, problems};
}

INSTANTIATE_TEST_SUITE_P(
    pdos, BoardProblems,
    testing::Values(
        pdos("number_in_both_directions",
             "    - {number: 1, direction: RPDO, mappings: []}\n"
             "    - {number: 1, direction: TPDO, mappings: []}\n",
             {}),
        pdos("number_twice_in_a_direction",
             "    - {number: 1, direction: TPDO, mappings: []}\n"
             "    - {number: 1, direction: TPDO, mappings: []}\n",
             {"5:16: error: TPDO 1 of this node stands twice, first in line 4"}),
        pdos("unreadable_numbers",
             "    - {number: 0, direction: TPDO, mappings: []}\n"
             "    - {number: 0, direction: TPDO, mappings: []}\n",
             {"4:16: error: number: expected a number from 1 to 255, found \"0\"",
              "5:16: error: number: expected a number from 1 to 255, found \"0\""}),
        pdos("field_twice",
             "    - number: 1\n"
             "      direction: RPDO\n"
             "      mappings:\n"
             "      - {index: 1, bit_length: 8, field: a}\n"
             "      - {index: 2, bit_length: 8}\n"
             "      - {index: 3, bit_length: 8}\n"
             "      - {index: 4, bit_length: 8, field: a}\n",
             {"10:42: error: field \"a\" of this PDO stands twice, first in line 7"}),
        pdos(
            "field_in_two_pdos",
            "    - {number: 1, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: a}]}\n"
            "    - {number: 2, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: a}]}\n",
            {}),
        pdos("sixty_four_bits",
             "    - number: 1\n"
             "      direction: RPDO\n"
             "      mappings: [{index: 1, bit_length: 32}, {index: 1, bit_length: 32}]\n",
             {}),
        pdos("too_long",
             "    - number: 1\n"
             "      direction: RPDO\n"
             "      mappings:\n"
             "      - {index: 1, bit_length: 32}\n"
             "      - {index: 2, bit_length: 40}\n"
             "      - {index: 3, bit_length: 8}\n",
             {"8:9: error: mapping: ends after 72 bits, a PDO has no more than 64"}),
        pdos("parts_of_bytes",
             "    - number: 1\n"
             "      direction: TPDO\n"
             "      mappings:\n"
             "      - {index: 1, bit_length: 8}\n"
             "      - {index: 2, bit_length: 4}\n"
             "      - {index: 3, bit_length: 12}\n"
             "      - {index: 4, bit_length: 8}\n",
             {"8:9: warning: mapping: bits 8 to 11 are not whole bytes, operations on the field "
              "miss some of them",
              "9:9: warning: mapping: bits 12 to 23 are not whole bytes, operations on the field "
              "miss some of them"}),
        pdos("nothing_known_after_an_unreadable_length",
             "    - number: 1\n"
             "      direction: RPDO\n"
             "      mappings:\n"
             "      - {index: 1, bit_length: x}\n"
             "      - {index: 2, bit_length: 4}\n",
             {"7:32: error: bit_length: expected a number from 1 to 64, found \"x\""})),
    RowName());

/// RPDO 1 with the fields a and b, RPDO 2 with c, TPDO 3 with d; the operation's keys in line 9.
ProblemCase reference(const std::string& name, const std::string& keys, const Texts& problems) {
  return {name,
          "nodes:\n"
          "- node_id: 1\n"
          "  pdos:\n"
          "  - {number: 1, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: a},\n"
          "     {index: 1, bit_length: 8, field: b}, {index: 1, bit_length: 8}]}\n"
          "  - {number: 2, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: c}]}\n"
          "  - {number: 3, direction: TPDO, mappings: [{index: 1, bit_length: 8, field: d}]}\n"
          "  operations: {op: {kind: sdo_read, index: 1,\n" +
              keys + "}}\n",
          problems};
}

/// A reference that is right. It is judged although the kind does not read it.
ProblemCase right(const std::string& name, const std::string& member, const std::string& value) {
  return reference(name, member + ": " + value,
                   {"9:1: warning: operation: sdo_read does not read \"" + member + "\""});
}

/// A wrong reference.
ProblemCase wrong(const std::string& name, const std::string& member, const std::string& value,
                  const std::string& problem) {
  ProblemCase row = right(name, member, value);
  row.problems.push_back(problem);
  return row;
}

INSTANTIATE_TEST_SUITE_P(
    references, BoardProblems,
    testing::Values(
        right("field", "field", "c"), right("no_field", "field", "''"),
        right("fields", "fields", "[a, c, b]"), right("no_fields", "fields", "[]"),
        right("pdo", "pdo_number", "2"), right("any_pdo", "pdo_number", "0"),
        right("pump_pdo", "pump_pdo_number", "1"),
        wrong("unknown_field", "field", "C",
              "9:8: error: field: no RPDO of this node maps a field \"C\""),
        wrong("field_of_a_tpdo", "field", "d",
              "9:8: error: field: no RPDO of this node maps a field \"d\""),
        reference("unknown_fields", "fields: [a, x, '']",
                  {"9:1: warning: operation: sdo_read does not read \"fields\"",
                   "9:13: error: fields: no RPDO of this node maps a field \"x\"",
                   "9:16: error: fields: no RPDO of this node maps a field \"\""}),
        wrong("unknown_pdo", "pdo_number", "9", "9:13: error: pdo_number: this node has no RPDO 9"),
        wrong("tpdo", "pdo_number", "3", "9:13: error: pdo_number: this node has no RPDO 3"),
        wrong("unknown_pump_pdo", "pump_pdo_number", "9",
              "9:18: error: pump_pdo_number: this node has no RPDO 9"),
        reference("field_of_another_pdo", "pdo_number: 1, field: c",
                  {"9:1: warning: operation: sdo_read does not read \"pdo_number\"",
                   "9:16: warning: operation: sdo_read does not read \"field\"",
                   "9:23: error: field: RPDO 1 of this node maps no field \"c\""}),
        reference("field_beside_an_unknown_pdo", "pdo_number: 9, field: c",
                  {"9:1: warning: operation: sdo_read does not read \"pdo_number\"",
                   "9:13: error: pdo_number: this node has no RPDO 9",
                   "9:16: warning: operation: sdo_read does not read \"field\""})),
    RowName());

/// A node whose one PDO is partly unreadable, and an operation on its RPDO 1, field a.
ProblemCase doubt(const std::string& name, const std::string& pdos, const Texts& errors) {
  ProblemCase row{name,
                  "nodes:\n- node_id: 1\n  pdos: " + pdos +
                      "\n  operations:\n"
                      "    op: {kind: sdo_read, index: 1, pdo_number: 1, field: a}\n",
                  errors};
  row.problems.emplace_back("5:36: warning: operation: sdo_read does not read \"pdo_number\"");
  row.problems.emplace_back("5:51: warning: operation: sdo_read does not read \"field\"");
  return row;
}

INSTANTIATE_TEST_SUITE_P(
    benefit_of_the_doubt, BoardProblems,
    testing::Values(
        doubt("pdos", "5", {"3:9: error: pdos: expected a list, found \"5\""}),
        doubt("number",
              "[{number: x, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: a}]}]",
              {"3:19: error: number: expected a number from 1 to 255, found \"x\""}),
        doubt("direction",
              "[{number: 1, direction: x, mappings: [{index: 1, bit_length: 8, field: a}]}]",
              {"3:33: error: direction: expected \"RPDO\" or \"TPDO\", found \"x\""}),
        doubt("mappings", "[{number: 1, direction: RPDO, mappings: x}]",
              {"3:49: error: mappings: expected a list, found \"x\""}),
        doubt("mapping", "[{number: 1, direction: RPDO, mappings: [x]}]",
              {"3:50: error: mapping: expected a map, found \"x\""}),
        doubt("field",
              "[{number: 1, direction: RPDO, mappings: [{index: 1, bit_length: 8, field: []}]}]",
              {"3:83: error: field: expected a text, found a list"})),
    RowName());

}  // namespace
}  // namespace velmora_can_bridge

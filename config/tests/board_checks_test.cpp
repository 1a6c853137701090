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
                    "  - {node_id: 1, device_od_map: {a: {base_index: 1}, b: {base_index: 2}}}\n"
                    "  - {node_id: 2, device_od_map: {A: {base_index: 1}, b: {base_index: 2}}}\n",
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
             "      direction: RPDO\n"
             "      mappings:\n"
             "      - {index: 0x2000, bit_length: 8}\n"
             "      - {index: 0x2001, bit_length: 12}\n"
             "      - {index: 0x2002, bit_length: 12}\n"
             "      - {index: 0x2003, bit_length: 8}\n",
             {"8:9: warning: mapping: bits 8 to 19 are not whole bytes, operations on the field "
              "miss some of them",
              "9:9: warning: mapping: bits 20 to 31 are not whole bytes, operations on the field "
              "miss some of them"}),
        pdos("parts_of_bytes_that_the_node_sends",
             "    - number: 1\n"
             "      direction: TPDO\n"
             "      mappings:\n"
             "      - {index: 0x2000, bit_length: 4}\n"
             "      - {index: 0x2001, bit_length: 12}\n",
             {}),
        pdos("nothing_known_after_an_unreadable_length",
             "    - number: 1\n"
             "      direction: RPDO\n"
             "      mappings:\n"
             "      - {index: 1, bit_length: x}\n"
             "      - {index: 2, bit_length: 4}\n",
             {"7:32: error: bit_length: expected a number from 1 to 64, found \"x\""})),
    RowName());

std::string clash(const std::string& place, const std::string& cob_id, const std::string& earlier) {
  return place + ": error: COB-ID " + cob_id + " is that of " + earlier +
         ", too; if that is meant, all PDOs that have it say shared_cob_id: true";
}

/// A node 0x10 with these PDOs in line 2 and on, then the rest.
ProblemCase two_nodes(const std::string& name, const std::string& pdos_of_the_first,
                      const std::string& pdos_of_the_second, const Texts& problems) {
  return {name,
          "nodes:\n- {node_id: 0x10, pdos: [" + pdos_of_the_first +
              "]}\n- {node_id: 0x11, pdos: [" + pdos_of_the_second + "]}\n",
          problems};
}

INSTANTIATE_TEST_SUITE_P(
    cob_ids, BoardProblems,
    testing::Values(
        pdos("cob_id_twice_in_a_node",
             "    - {number: 1, direction: RPDO, cob_id: 0x690, mappings: []}\n"
             "    - {number: 2, direction: RPDO, mappings: []}\n"
             "    - {number: 7, direction: TPDO, cob_id: 0x690, mappings: []}\n",
             {clash("6:44", "0x0690", "RPDO 1 of node 0x01 in line 4")}),
        pdos("cob_id_of_both_directions_of_a_number",
             "    - {number: 1, direction: RPDO, cob_id: 0x690, mappings: []}\n"
             "    - {number: 1, direction: TPDO, cob_id: 0x690, mappings: []}\n",
             {clash("5:44", "0x0690", "RPDO 1 of node 0x01 in line 4")}),
        pdos("cob_id_that_is_the_predefined_one_of_a_later_pdo",
             "    - {number: 5, direction: RPDO, cob_id: 0x201, mappings: []}\n"
             "    - {number: 1, direction: RPDO, mappings: []}\n",
             {clash("5:7", "0x0201", "RPDO 5 of node 0x01 in line 4")}),
        pdos("cob_id_of_a_predefined_tpdo",
             "    - {number: 4, direction: TPDO, mappings: []}\n"
             "    - {number: 1, direction: RPDO, cob_id: 0x481, mappings: []}\n",
             {clash("5:44", "0x0481", "TPDO 4 of node 0x01 in line 4")}),
        pdos("pdos_without_any_cob_id",
             "    - {number: 5, direction: RPDO, mappings: []}\n"
             "    - {number: 6, direction: RPDO, mappings: []}\n"
             "    - {number: 5, direction: TPDO, mappings: []}\n",
             {}),
        two_nodes("cob_id_in_two_nodes",
                  "{number: 5, direction: RPDO, cob_id: 0x211, mappings: []}",
                  "{number: 1, direction: RPDO, mappings: []}",
                  {clash("3:26", "0x0211", "RPDO 5 of node 0x10 in line 2")}),
        two_nodes("tpdo_that_another_node_takes", "{number: 1, direction: TPDO, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x190, mappings: []}",
                  {clash("3:63", "0x0190", "TPDO 1 of node 0x10 in line 2")}),
        two_nodes("cob_id_that_all_share",
                  "{number: 1, direction: TPDO, shared_cob_id: true, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x190, shared_cob_id: true, mappings: []},"
                  "{number: 2, direction: RPDO, cob_id: 0x190, shared_cob_id: 1, mappings: []}",
                  {}),
        two_nodes("cob_id_that_the_first_shares",
                  "{number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: true, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: false, mappings: []}",
                  {clash("3:63", "0x0690", "RPDO 1 of node 0x10 in line 2")}),
        two_nodes("cob_id_that_the_second_shares",
                  "{number: 1, direction: RPDO, cob_id: 0x690, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: true, mappings: []}",
                  {clash("3:63", "0x0690", "RPDO 1 of node 0x10 in line 2")}),
        pdos(
            "cob_id_that_one_of_many_does_not_share",
            "    - {number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: true, mappings: []}\n"
            "    - {number: 2, direction: RPDO, cob_id: 0x690, shared_cob_id: true, mappings: []}\n"
            "    - {number: 3, direction: RPDO, cob_id: 0x690, mappings: []}\n"
            "    - {number: 4, direction: RPDO, cob_id: 0x690, shared_cob_id: true, mappings: "
            "[]}\n",
            {clash("6:44", "0x0690", "RPDO 1 of node 0x01 in line 4"),
             clash("7:44", "0x0690", "RPDO 3 of node 0x01 in line 6")}),
        pdos("shared_cob_id_that_nobody_else_has",
             "    - {number: 1, direction: RPDO, shared_cob_id: true, mappings: []}\n", {})),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    cob_ids_in_doubt, BoardProblems,
    testing::Values(
        two_nodes("unreadable_cob_id", "{number: 1, direction: RPDO, cob_id: x, mappings: []}",
                  "{number: 9, direction: RPDO, cob_id: 0x210, mappings: []}",
                  {"2:63: error: cob_id: expected an identifier that PDOs may have, 0x181 to 0x57F "
                   "or 0x680 to 0x6DF, found \"x\""}),
        two_nodes("unreadable_share",
                  "{number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: x, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x690, shared_cob_id: 1, mappings: []}",
                  {"2:85: error: shared_cob_id: expected true, false, 1 or 0, found \"x\""}),
        two_nodes("unreadable_direction", "{number: 1, direction: x, cob_id: 0x690, mappings: []}",
                  "{number: 1, direction: RPDO, cob_id: 0x690, mappings: []}",
                  {"2:49: error: direction: expected \"RPDO\" or \"TPDO\", found \"x\""}),
        ProblemCase{"pdos_of_a_node_that_stands_twice",
                    "nodes:\n"
                    "- {node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: []}]}\n"
                    "- {node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: []}]}\n",
                    {"3:13: error: node_id 1 stands twice, first in line 2"}},
        ProblemCase{
            "pdos_of_a_node_without_a_readable_id",
            "nodes:\n"
            "- {node_id: 1, pdos: [{number: 1, direction: RPDO, mappings: []}]}\n"
            "- {node_id: 0, pdos: [{number: 1, direction: RPDO, cob_id: 0x201, mappings: []}]}\n",
            {"3:13: error: node_id: expected a number from 1 to 127, found \"0\""}}),
    RowName());

INSTANTIATE_TEST_SUITE_P(
    transmissions, BoardProblems,
    testing::Values(
        pdos("transmissions_of_either_direction",
             "    - {number: 1, direction: RPDO, transmission: 0, mappings: []}\n"
             "    - {number: 2, direction: RPDO, transmission: 240, mappings: []}\n"
             "    - {number: 3, direction: RPDO, transmission: 254, mappings: []}\n"
             "    - {number: 4, direction: RPDO, transmission: 255, mappings: []}\n"
             "    - {number: 1, direction: TPDO, transmission: 252, mappings: []}\n"
             "    - {number: 2, direction: TPDO, transmission: 253, mappings: []}\n",
             {}),
        pdos("transmissions_of_tpdos_alone",
             "    - {number: 1, direction: RPDO, transmission: 252, mappings: []}\n"
             "    - {transmission: 0xFD, number: 2, direction: RPDO, mappings: []}\n",
             {"4:50: error: transmission: expected 0 to 240, 254 or 255 for an RPDO, found "
              "\"252\"",
              "5:22: error: transmission: expected 0 to 240, 254 or 255 for an RPDO, found "
              "\"0xFD\""})),
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

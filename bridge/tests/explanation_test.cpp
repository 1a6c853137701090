#include "velmora_can_bridge/bridge/explanation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "board_on_bus.hpp"
#include "lamp_board.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr const char* board_text = R"(
nodes:
  - node_id: 0x10
    device_od_map:
      wheel: {profile: ci402, base_index: 0x6040}
      lamp: {base_index: 0x2000}
    pdos:
      - number: 1
        direction: RPDO
        mappings:
          - {index: 0x60FF, sub_index: 0, bit_length: 32, field: velocity}
          - {index: 0x2000, sub_index: 1, bit_length: 8, field: level}
          - {index: 0x2000, sub_index: 2, bit_length: 4, field: dim}
          - {index: 0x2000, sub_index: 3, bit_length: 4}
          - {index: 0x2000, sub_index: 4, bit_length: 8}
      - number: 2
        direction: RPDO
        mappings:
          - {index: 0x6060, sub_index: 0, bit_length: 8, field: mode}
          - {index: 0x2001, sub_index: 1, bit_length: 8, field: hue}
    operations:
      drive: {kind: pdo_write, pdo_number: 1, fields: [velocity]}
      set_hue: {kind: pdo_write, pdo_number: 2, field: hue}
      refresh_hue: {kind: pdo_write, pdo_number: 2, field: hue, refresh_shadow: true}
      set_mode: {kind: ci402_set_mode}
      set_target: {kind: ci402_set_target, transport: sdo}
      read_level: {kind: sdo_read, index: 0x2000, sub_index: 1, data_type: s8}
      write_level: {kind: sdo_write, index: 0x2000, sub_index: 1, data_type: s8}
      read_name: {kind: sdo_read, index: 0x1008}
      read_nothing: {kind: sdo_read, index: 0x5FFF}
      write_raw: {kind: sdo_write, index: 0x2001, sub_index: 1}
)";

BoardFile wheel_and_lamp() { return parse_board(board_text).file.value(); }

class ExplanationTest : public testing::Test {
 protected:
  Explanation explain(const std::string& device, const std::string& operation,
                      const Bytes& payload = {}) {
    return board.bridge.explain(device, operation, payload);
  }

  std::string text_of(const std::string& device, const std::string& operation,
                      const Bytes& payload = {}) {
    return explanation_text(explain(device, operation, payload));
  }

  BoardOnBus board{wheel_and_lamp()};
};

// --- texts ---

TEST_F(ExplanationTest, text_has_reads_frame_fields_mode_and_answer) {
  board.bridge.run("lamp", "write_level", {0xFE});
  EXPECT_EQ(text_of("wheel", "drive", {0xFE, 0xFF, 0xFF, 0xFF}),
            "wheel drive on node 0x10; nothing is written or sent\n"
            "read         wheel 0x60FF/0 (velocity) = 00 00 00 00 (0)\n"
            "read         lamp 0x2000/1 (level) = FE (-2)\n"
            "read         lamp 0x2000/4 = 00 (0)\n"
            "would send   RPDO 1, COB-ID 0x0210: 00 00 00 00 FE 00 00 -> FE FF FF FF FE 00 00\n"
            "               velocity 0 -> -2, wheel 0x60FF/0\n"
            "               level -2 unchanged, lamp 0x2000/1\n"
            "               dim 0 unchanged, lamp 0x2000/2\n"
            "               lamp 0x2000/3 0 unchanged\n"
            "               lamp 0x2000/4 0 unchanged\n"
            "mode of operation 0 (none) unchanged\n"
            "would answer ok: OK\n");
}

TEST_F(ExplanationTest, text_of_a_loaded_image_has_no_reads) {
  board.bridge.run("lamp", "set_hue", {7});
  EXPECT_EQ(text_of("lamp", "set_hue", {8}),
            "lamp set_hue on node 0x10; nothing is written or sent\n"
            "would send   RPDO 2, COB-ID 0x0310: 00 07 -> 00 08\n"
            "               mode 0 (none) unchanged, wheel 0x6060/0\n"
            "               hue 7 -> 8, 0x2001/1\n"
            "would answer ok: OK\n");
}

TEST_F(ExplanationTest, text_of_a_write_tells_the_value) {
  EXPECT_EQ(text_of("lamp", "write_level", {0xFE}),
            "lamp write_level on node 0x10; nothing is written or sent\n"
            "would write  lamp 0x2000/1 (level) = FE (-2)\n"
            "would answer ok: OK\n");
}

TEST_F(ExplanationTest, text_of_a_read_tells_what_would_be_answered) {
  board.bridge.run("lamp", "write_level", {0xFE});
  EXPECT_EQ(text_of("lamp", "read_level"),
            "lamp read_level on node 0x10; nothing is written or sent\n"
            "read         lamp 0x2000/1 (level) = FE (-2)\n"
            "would answer ok: OK, data FE\n");
}

TEST_F(ExplanationTest, text_of_a_mode_tells_before_and_after) {
  board.bridge.run("wheel", "set_mode", {3});
  EXPECT_EQ(text_of("wheel", "set_mode", {1}),
            "wheel set_mode on node 0x10; nothing is written or sent\n"
            "would write  wheel 0x6060/0 (mode) = 01 (1, position)\n"
            "mode of operation 3 (velocity) -> 1 (position)\n"
            "would answer ok: Mode set to 1\n");
}

TEST_F(ExplanationTest, text_of_a_refused_read_has_the_reason) {
  EXPECT_EQ(text_of("lamp", "read_nothing"),
            "lamp read_nothing on node 0x10; nothing is written or sent\n"
            "read         0x5FFF/0 (read_nothing): abort 0x06020000, no object at this index\n"
            "would fail: SDO read failed at 0x5FFF/0 (abort 0x06020000, no object at this "
            "index)\n");
}

TEST_F(ExplanationTest, text_of_a_payload_that_is_refused_has_no_transfers) {
  EXPECT_EQ(text_of("lamp", "write_level", {}),
            "lamp write_level on node 0x10; nothing is written or sent\n"
            "would fail: payload too short for sdo_write\n");
}

TEST_F(ExplanationTest, text_of_unknown_names_has_no_node) {
  EXPECT_EQ(text_of("Lamp", "drive"),
            "Lamp drive; nothing is written or sent\n"
            "would fail: Device not found: Lamp\n");
  EXPECT_EQ(text_of("lamp", "Drive"),
            "lamp Drive; nothing is written or sent\n"
            "would fail: Operation not found: Drive\n");
}

/// Numbers above 4 have none unless the board gives them one.
TEST(ExplanationText, frame_without_a_cob_id_has_the_reason) {
  BoardFile file = lamp_file();
  file.nodes[0].board.pdos[0].number = 5;
  file.nodes[0].operations["set_level"].pdo_number = 5;
  BoardOnBus board(file);
  const Explanation explanation = board.bridge.explain("lamp", "set_level", {1});
  EXPECT_EQ(explanation_text(explanation),
            "lamp set_level on node 0x10; nothing is written or sent\n"
            "read         lamp 0x2000/1 (level) = 00 (0)\n"
            "read         lamp 0x2000/2 (mode) = 00 (0)\n"
            "would send   RPDO 5: RPDO 5 has no COB-ID: give it a cob_id in the board "
            "configuration\n"
            "would fail: RPDO send failed (RPDO 5 has no COB-ID: give it a cob_id in "
            "the board configuration)\n");
  EXPECT_EQ(nlohmann::json::parse(explanation_json(explanation))["transfers"][2].dump(),
            R"({"before":[],"cob_id":0,"data":[1,0],"fields":[],"kind":"rpdo","number":5,)"
            R"("reason":"RPDO 5 has no COB-ID: give it a cob_id in the board )"
            R"(configuration"})");
  ASSERT_TRUE(explanation.error);
  EXPECT_EQ(explanation.error->kind, BusErrorKind::not_configured);
}

TEST(ExplanationText, silent_node_has_the_reason) {
  InProcessBus nobody(BusTime::simulated);
  Bridge bridge(nobody, lamp_file());
  EXPECT_EQ(explanation_text(bridge.explain("lamp", "set_level", {1})),
            "lamp set_level on node 0x10; nothing is written or sent\n"
            "read         lamp 0x2000/1 (level): no answer within 500 ms\n"
            "would fail: RPDO shadow sync failed for lamp (no answer within 500 ms)\n");
}

/// A refresh goes on without what it could not read; not so after a stop.
TEST(ExplanationStop, nothing_follows_a_read_that_was_stopped) {
  InProcessBus nobody(BusTime::simulated);
  Bridge bridge(nobody, lamp_file());
  const auto sniffer =
      nobody.open({{0x610}}, [&](const CanFrame& /*frame*/, auto& /*answers*/) { bridge.stop(); });
  const Explanation explanation = bridge.explain("lamp", "refresh_level", {1});
  EXPECT_EQ(explanation_text(explanation),
            "lamp refresh_level on node 0x10; nothing is written or sent\n"
            "read         lamp 0x2000/1 (level): stopped; no answer within 500 ms\n"
            "read         lamp 0x2000/2 (mode): stopped\n"
            "would send   RPDO 1: stopped; no answer within 500 ms\n"
            "would fail: RPDO send failed (stopped; no answer within 500 ms)\n");
  ASSERT_TRUE(explanation.error);
  EXPECT_EQ(explanation.error->kind, BusErrorKind::stopped);
  EXPECT_EQ(explanation.error->sub_index, 1);
}

TEST(ExplanationStop, what_needs_no_reads_is_explained_after_a_stop) {
  InProcessBus nobody(BusTime::simulated);
  Bridge bridge(nobody, lamp_file());
  bridge.stop();
  EXPECT_TRUE(bridge.explain("lamp", "write_level", {1, 0}).result.ok);
}

// --- the image before ---

TEST_F(ExplanationTest, image_before_a_refresh_is_what_the_node_has) {
  board.bridge.run("lamp", "set_hue", {7});
  board.bridge.run("lamp", "write_raw", {9});  // past the image
  const Explanation explanation = explain("lamp", "refresh_hue", {8});
  ASSERT_EQ(explanation.transfers.size(), 3U);
  EXPECT_EQ(explanation.transfers[2].image_before, (Bytes{0, 9}));
}

TEST_F(ExplanationTest, image_before_a_first_load_has_the_mirrored_bytes) {
  board.bridge.run("wheel", "set_mode", {3});
  board.bridge.write_object(0x10, 0x6060, 0, {1});
  EXPECT_EQ(explain("lamp", "set_hue", {8}).transfers.back().image_before, (Bytes{3, 0}));
}

TEST_F(ExplanationTest, image_before_a_refresh_that_is_the_first_load_has_no_mirrored_bytes) {
  board.bridge.run("wheel", "set_mode", {3});
  board.bridge.write_object(0x10, 0x6060, 0, {1});
  EXPECT_EQ(explain("lamp", "refresh_hue", {8}).transfers.back().image_before, (Bytes{1, 0}));
}

/// A refresh goes on without the objects that the node refuses.
TEST(ExplanationImage, image_before_a_refresh_that_is_the_first_load_may_lack_objects) {
  InProcessBus can0(BusTime::simulated);
  NodeOnBus lamp(can0, 0x10, lamp_board());
  lamp.node.device().set_object_value(0x2000, 1, {7});
  lamp.node.device().add_object(0x2000, 2, {ObjectAccess::write_only, {0}, false, 0});
  Bridge bridge(can0, lamp_file());
  const Explanation explanation = bridge.explain("lamp", "refresh_level", {8}, true);
  ASSERT_EQ(explanation.transfers.size(), 3U);
  EXPECT_EQ(explanation.transfers[2].image_before, (Bytes{7, 0}));
  EXPECT_EQ(explanation.transfers[2].fields.size(), 2U);
  EXPECT_TRUE(explanation.result.ok);
  EXPECT_FALSE(explanation.error) << "what was tolerated is no reason";
}

// --- JSON ---

TEST_F(ExplanationTest, json_of_a_frame) {
  board.bridge.run("lamp", "drive", {1, 0, 0, 0});
  EXPECT_EQ(
      explanation_json(explain("lamp", "drive", {0xFE, 0xFF, 0xFF, 0xFF})),
      R"({"operation":"drive","device":"lamp","node_id":16,"ok":true,"data":[],"message":"OK",)"
      R"("transfers":[{"kind":"rpdo","number":1,"cob_id":528,"before":[1,0,0,0,0,0,0],)"
      R"("data":[254,255,255,255,0,0,0],"fields":[)"
      R"({"index":24831,"sub_index":0,"device":"wheel","field":"velocity","bit_length":32,)"
      R"("before":1,"after":-2,"changed":true},)"
      R"({"index":8192,"sub_index":1,"device":"lamp","field":"level",)"
      R"("operations":["read_level","write_level"],"bit_length":8,)"
      R"("before":0,"after":0,"changed":false},)"
      R"({"index":8192,"sub_index":2,"device":"lamp","field":"dim","bit_length":4,)"
      R"("before":0,"after":0,"changed":false},)"
      R"({"index":8192,"sub_index":3,"device":"lamp","bit_length":4,)"
      R"("before":0,"after":0,"changed":false},)"
      R"({"index":8192,"sub_index":4,"device":"lamp","bit_length":8,)"
      R"("before":0,"after":0,"changed":false}]}]})");
}

TEST_F(ExplanationTest, json_of_a_write_and_the_modes) {
  EXPECT_EQ(
      explanation_json(explain("wheel", "set_mode", {0xFE})),
      R"({"operation":"set_mode","device":"wheel","node_id":16,"ok":true,"data":[],)"
      R"("message":"Mode set to 254","mode_before":0,"mode_before_words":"none","mode_after":254,)"
      R"("transfers":[{"kind":"sdo_write","index":24672,"sub_index":0,"device":"wheel",)"
      R"("field":"mode","data":[254],"value":-2}]})");
}

TEST_F(ExplanationTest, json_of_a_read) {
  board.bridge.run("lamp", "write_level", {0xFE});
  EXPECT_EQ(explanation_json(explain("lamp", "read_level")),
            R"({"operation":"read_level","device":"lamp","node_id":16,"ok":true,"data":[254],)"
            R"("message":"OK","transfers":[{"kind":"sdo_read","index":8192,"sub_index":1,)"
            R"("device":"lamp","field":"level","operations":["read_level","write_level"],)"
            R"("data":[254],"value":-2}]})");
}

TEST_F(ExplanationTest, json_of_a_text_has_words_and_no_value) {
  EXPECT_EQ(explanation_json(explain("lamp", "read_name")),
            R"({"operation":"read_name","device":"lamp","node_id":16,"ok":true,)"
            R"("data":[83,105,109,117,108,97,116,101,100,32,110,111,100,101],"message":"OK",)"
            R"("transfers":[{"kind":"sdo_read","index":4104,"sub_index":0,)"
            R"("operations":["read_name"],)"
            R"("data":[83,105,109,117,108,97,116,101,100,32,110,111,100,101],)"
            R"("words":"Simulated node"}]})");
}

TEST_F(ExplanationTest, json_has_the_words_of_values_and_fields) {
  const auto written = nlohmann::json::parse(explanation_json(explain("wheel", "set_mode", {3})));
  EXPECT_EQ(written["mode_after_words"], "velocity");
  EXPECT_EQ(written["transfers"][0]["value"], 3);
  EXPECT_EQ(written["transfers"][0]["words"], "velocity");
  board.bridge.run("wheel", "set_mode", {3});
  const auto sent = nlohmann::json::parse(explanation_json(explain("lamp", "set_hue", {8})));
  const auto& mode = sent["transfers"].back()["fields"][0];
  EXPECT_EQ(mode["before"], 3);
  EXPECT_EQ(mode["before_words"], "velocity");
  EXPECT_EQ(mode["after_words"], "velocity");
}

TEST(ExplanationText, text_of_a_device_is_escaped) {
  const BoardFile file = wheel_and_lamp();
  InProcessBus can0(BusTime::simulated);
  NodeOnBus node(can0, 0x10, file.nodes[0].board);
  node.node.device().add_object(0x1008, 0, {ObjectAccess::read_only, {0x1B, '[', 'J'}, false, 0});
  Bridge bridge(can0, file);
  EXPECT_THAT(explanation_text(bridge.explain("lamp", "read_name", {})),
              testing::HasSubstr("= 1B 5B 4A (\"\\x1B[J\")\n"));
}

TEST_F(ExplanationTest, json_of_a_failure_has_the_reason) {
  EXPECT_EQ(explanation_json(explain("lamp", "read_nothing")),
            R"({"operation":"read_nothing","device":"lamp","node_id":16,"ok":false,"data":[],)"
            R"("message":"SDO read failed at 0x5FFF/0",)"
            R"("reason":"abort 0x06020000, no object at this index",)"
            R"("transfers":[{"kind":"sdo_read","index":24575,"sub_index":0,)"
            R"("operations":["read_nothing"],"data":[],)"
            R"("reason":"abort 0x06020000, no object at this index"}]})");
}

TEST_F(ExplanationTest, json_of_unknown_names_has_no_transfers) {
  EXPECT_EQ(explanation_json(explain("Lamp", "drive")),
            R"({"operation":"drive","device":"Lamp","node_id":0,"ok":false,"data":[],)"
            R"("message":"Device not found: Lamp","transfers":[]})");
}

// --- frames ---

std::vector<std::string> lines_of(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST_F(ExplanationTest, frames_are_log_lines_10_ms_apart) {
  EXPECT_EQ(explanation_frames(explain("lamp", "set_hue", {7}), "can7"),
            "(0000000000.000000) can7 610#4060600000000000\n"
            "(0000000000.010000) can7 610#4001200100000000\n"
            "(0000000000.020000) can7 310#0007\n");
}

TEST_F(ExplanationTest, each_line_of_the_frames_is_one_of_a_log) {
  for (const char* const operation : {"read_name", "write_raw", "drive", "set_mode"}) {
    const auto lines = lines_of(
        explanation_frames(explain("wheel", operation, {1, 2, 3, 4, 5, 6, 7, 8, 9}), "can0"));
    EXPECT_FALSE(lines.empty()) << operation;
    for (const std::string& line : lines) {
      EXPECT_TRUE(is_can_log_line(line)) << line;
    }
  }
}

TEST_F(ExplanationTest, frames_of_a_failed_upload_are_its_first_request) {
  EXPECT_EQ(explanation_frames(explain("lamp", "read_nothing"), "can0"),
            "(0000000000.000000) can0 610#40FF5F0000000000\n");
}

TEST_F(ExplanationTest, frames_of_a_value_in_segments_are_all_its_requests) {
  EXPECT_EQ(explanation_frames(explain("lamp", "read_name"), "can0"),
            "(0000000000.000000) can0 610#4008100000000000\n"
            "(0000000000.010000) can0 610#6000000000000000\n"
            "(0000000000.020000) can0 610#7000000000000000\n");
}

TEST_F(ExplanationTest, what_was_refused_has_no_frames) {
  EXPECT_EQ(explanation_frames(explain("lamp", "write_level"), "can0"), "");
}

/// As canplayer does: the frames alone, without answers.
TEST_F(ExplanationTest, frames_sent_by_hand_give_the_objects_what_run_gives) {
  struct Row {
    const char* operation;
    Bytes payload;
    std::uint16_t index;
    std::uint8_t sub_index;
  };
  for (const Row& row : {Row{"drive", {1, 2, 3, 4}, 0x60FF, 0}, Row{"set_hue", {7}, 0x2001, 1},
                         Row{"write_level", {5}, 0x2000, 1}, Row{"set_mode", {3}, 0x6060, 0},
                         Row{"set_target", {9, 0}, 0x60FF, 0}}) {
    SCOPED_TRACE(row.operation);
    BoardOnBus by_hand(wheel_and_lamp());
    BoardOnBus by_run(wheel_and_lamp());
    const auto sender = by_hand.nodes.open({});
    const Explanation explanation = by_hand.bridge.explain("wheel", row.operation, row.payload);
    for (const CanFrame& frame : explanation.frames) {
      EXPECT_EQ(sender->send(frame, std::chrono::nanoseconds(0)), CanStatus::ok);
    }
    by_run.bridge.run("wheel", row.operation, row.payload);
    const auto value = by_hand.bridge.read_object(0x10, row.index, row.sub_index);
    ASSERT_TRUE(value);
    EXPECT_EQ(*value, *by_run.bridge.read_object(0x10, row.index, row.sub_index));
    EXPECT_NE(*value, Bytes(value->size())) << "it was 0 before";
  }
}

}  // namespace
}  // namespace velmora_can_bridge

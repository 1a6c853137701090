#include "support/shadow_test.hpp"

namespace velmora_can_bridge {
namespace {

/// What an operation writes by SDO, the images of the RPDOs repeat. Shown by the drive "wheel",
/// whose controlword is 0x2001, the field "flags": disabling it writes and mirrors 06 00.
class WriteOdToShadow : public ShadowTest {
 protected:
  static constexpr std::uint16_t controlword = 0x2001;
  static constexpr std::uint16_t mode = controlword + 0x20;

  WriteOdToShadow() { board.device_od_map["wheel"] = {"ci402", controlword, 0}; }

  void mirror_controlword() {
    op.kind = "ci402_disable";
    EXPECT_EQ(run({}, "wheel"), ok("Motor disabled"));
    backend.calls.clear();
  }

  void mirror_mode(std::uint8_t value) {
    op.kind = "ci402_set_mode";
    EXPECT_TRUE(run({value}, "wheel").ok);
    backend.calls.clear();
  }

  /// Sends the RPDO as the node holds it; the calls of that.
  Calls refresh() {
    OperationConfig refreshing;
    refreshing.kind = "pdo_patch";
    refreshing.pdo_number = 1;
    refreshing.fields = {"word"};
    refreshing.refresh_shadow = 1;
    controller.execute_configured_operation(refreshing, "", {});
    return backend.calls;
  }

  /// Loads the RPDO's image, mirrors the controlword and answers the calls of the next send.
  Calls send_after_mirror(std::uint8_t rpdo) {
    next_send(rpdo);
    mirror_controlword();
    return next_send(rpdo);
  }
};

// --- where the bytes go ---

TEST_F(WriteOdToShadow, mapped_object_gets_the_bytes_and_no_other_field_does) {
  board.pdos = {
      {1, "RPDO", 0, {{0x2000, 2, 8, ""}, {controlword, 0, 16, ""}, {0x2002, 0, 32, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 7: 13 06 00 15 16 17 18 00"});
}

TEST_F(WriteOdToShadow, every_rpdo_that_maps_the_object_is_mirrored) {
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 16, ""}}},
                {2, "RPDO", 0, {{0x2000, 2, 8, ""}}},
                {3, "RPDO", 0, {{0x2000, 1, 16, ""}, {controlword, 0, 16, ""}}},
                {255, "RPDO", 0, {{0x2000, 2, 8, ""}, {controlword, 0, 16, ""}}}};
  for (const std::uint8_t rpdo : Bytes{1, 2, 3, 255}) {
    next_send(rpdo);
  }
  mirror_controlword();
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 2: 06 00 00 00 00 00 00 00"});
  EXPECT_EQ(next_send(2), Calls{"rpdo 5 2 len 1: 13 00 00 00 00 00 00 00"});
  EXPECT_EQ(next_send(3), Calls{"rpdo 5 3 len 4: 11 12 06 00 00 00 00 00"});
  EXPECT_EQ(next_send(255), Calls{"rpdo 5 255 len 3: 13 06 00 00 00 00 00 00"});
}

TEST_F(WriteOdToShadow, every_mapping_of_the_object_in_one_rpdo_is_mirrored) {
  board.pdos = {
      {1, "RPDO", 0, {{controlword, 0, 16, ""}, {0x2000, 2, 8, ""}, {controlword, 0, 16, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 5: 06 00 13 06 00 00 00 00"});
}

TEST_F(WriteOdToShadow, every_entry_of_one_number_is_mirrored) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 9, 8, ""}, {0x2000, 9, 16, ""}, {controlword, 0, 16, ""}}},
                {1, "RPDO", 0, {{0x2000, 9, 8, ""}, {controlword, 0, 16, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 5: 00 06 00 06 00 00 00 00"});
}

TEST_F(WriteOdToShadow, other_sub_indices_of_the_object_are_left_alone) {
  backend.objects[{controlword, 1}] = {0x51, 0x52};
  backend.objects[{controlword, 255}] = {0x61, 0x62};
  board.pdos = {{1,
                 "RPDO",
                 0,
                 {{controlword, 1, 16, ""}, {controlword, 0, 16, ""}, {controlword, 255, 16, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 6: 51 52 06 00 61 62 00 00"});
}

TEST_F(WriteOdToShadow, mode_that_wraps_to_0010_is_an_object_and_no_padding) {
  board.device_od_map["wheel"] = {"ci402", 0xFFF0, 0};
  board.pdos = {{1, "RPDO", 0, {{0x0010, 0, 8, ""}, {0x2000, 2, 8, ""}}}};
  backend.objects[{0x0010, 0}] = {0x77};
  EXPECT_EQ(next_send(), (Calls{"read 5 0x0010/0", "read 5 0x2000/2",
                                "rpdo 5 1 len 2: 77 13 00 00 00 00 00 00"}));
  mirror_mode(3);
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 2: 03 13 00 00 00 00 00 00"});
}

TEST_F(WriteOdToShadow, pdos_of_other_directions_are_passed_over) {
  board.pdos = {{1, "TPDO", 0, {{controlword, 0, 16, ""}}},
                {1, "rpdo", 0, {{controlword, 0, 16, ""}}},
                {1, "RPDO", 0, {{0x2002, 0, 32, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 4: 15 16 17 18 00 00 00 00"});
}

TEST_F(WriteOdToShadow, object_that_no_rpdo_maps_changes_nothing) {
  next_send();
  mirror_mode(0x55);
  EXPECT_EQ(next_send(), Calls{sent(start)});
}

TEST_F(WriteOdToShadow, board_without_pdos_is_no_failure) {
  board.pdos.clear();
  mirror_controlword();
}

TEST_F(WriteOdToShadow, rpdo_numbered_0_is_mirrored) {
  board.pdos = {{0, "RPDO", 0, {{0x2000, 1, 16, ""}, {controlword, 0, 16, ""}}}};
  OperationConfig pump;
  pump.kind = "pump_duty";
  pump.index = 0x2000;
  pump.rpdo_channels = {1};
  const auto set_duty = [&] {
    EXPECT_TRUE(controller.execute_configured_operation(pump, "wheel", {1, 0xA1, 0xA2}).ok);
  };
  set_duty();
  mirror_controlword();
  set_duty();
  EXPECT_EQ(backend.calls, Calls{"rpdo 5 0 len 4: A1 A2 06 00 00 00 00 00"});
}

// --- lengths ---

TEST_F(WriteOdToShadow, surplus_bytes_reach_no_neighbour) {
  next_send();
  mirror_controlword();  // two bytes into the one of "flags"
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"});
}

TEST_F(WriteOdToShadow, bytes_that_the_write_does_not_give_stay_as_they_are) {
  backend.objects[{controlword, 0}] = {0x51, 0x52, 0x53, 0x54};
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 32, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 4: 06 00 53 54 00 00 00 00"});
}

TEST_F(WriteOdToShadow, field_over_the_end_of_the_frame_is_cut) {
  board.pdos = {{1, "RPDO", 0, {{0x2000, 9, 56, ""}, {controlword, 0, 16, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 8: 00 00 00 00 00 00 00 06"});
}

TEST_F(WriteOdToShadow, field_beyond_the_frame_changes_nothing) {
  board.pdos = {{1, "RPDO", 0, {{0x2002, 0, 64, ""}, {controlword, 0, 16, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 8: 15 16 17 18 00 00 00 00"});
}

TEST_F(WriteOdToShadow, field_of_less_than_a_byte_changes_nothing) {
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 7, ""}, {0x2000, 2, 8, ""}}}};
  EXPECT_EQ(send_after_mirror(1), Calls{"rpdo 5 1 len 2: 13 00 00 00 00 00 00 00"});
}

TEST_F(WriteOdToShadow, length_of_the_rpdo_stays_as_it_was_loaded) {
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 12, ""}}},
                {2, "RPDO", 0, {{controlword, 0, 64, ""}}}};
  next_send(1);
  next_send(2);
  mirror_controlword();
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 2: 06 00 00 00 00 00 00 00"});
  EXPECT_EQ(next_send(2), Calls{"rpdo 5 2 len 8: 06 00 00 00 00 00 00 00"});
}

// --- the image's state ---

TEST_F(WriteOdToShadow, loaded_image_stays_loaded) {
  next_send();
  mirror_controlword();
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"});
}

TEST_F(WriteOdToShadow, mirrored_bytes_survive_the_first_load_which_reads_every_object) {
  mirror_controlword();
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"}));
}

TEST_F(WriteOdToShadow, bytes_of_the_field_that_the_mirror_did_not_reach_come_from_the_first_load) {
  backend.objects[{controlword, 0}] = {0x51, 0x52, 0x53, 0x54};
  board.pdos = {{1, "RPDO", 0, {{0x2000, 2, 8, "byte"}, {controlword, 0, 32, ""}}}};
  mirror_controlword();
  EXPECT_EQ(last(next_send()), "rpdo 5 1 len 5: 13 06 00 53 54 00 00 00");
}

TEST_F(WriteOdToShadow, bytes_mirrored_since_the_images_were_forgotten_survive_the_load) {
  next_send();
  controller.forget_rpdo_shadows();
  mirror_controlword();
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"}));
}

TEST_F(WriteOdToShadow, bytes_mirrored_before_the_images_were_forgotten_do_not_survive_the_load) {
  mirror_controlword();
  controller.forget_rpdo_shadows();
  EXPECT_EQ(next_send(), loaded_then({sent(start)}));
}

TEST_F(WriteOdToShadow, every_place_of_the_object_survives_the_load_of_its_rpdo) {
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 8, "a"}, {0x2000, 2, 8, "byte"}}},
                {2, "RPDO", 0, {{0x2000, 2, 8, "byte"}, {controlword, 0, 8, "a"}}},
                {1, "RPDO", 0, {{0x2000, 1, 16, "word"}, {controlword, 0, 8, "a"}}}};
  mirror_controlword();
  EXPECT_EQ(last(next_send(1)), "rpdo 5 1 len 3: 06 12 06 00 00 00 00 00");
  EXPECT_EQ(last(next_send(2)), "rpdo 5 2 len 2: 13 06 00 00 00 00 00 00");
}

TEST_F(WriteOdToShadow, load_that_is_refused_leaves_the_mirrored_bytes_marked) {
  mirror_controlword();
  backend.serve(3);
  backend.refuse();
  OperationConfig write;
  write.kind = "pdo_write";
  write.pdo_number = 1;
  write.field = "word";
  EXPECT_EQ(controller.execute_configured_operation(write, "io", {1, 2}),
            failed("RPDO shadow sync failed for io"));
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"}));
}

TEST_F(WriteOdToShadow, load_that_throws_leaves_the_mirrored_bytes_marked) {
  mirror_controlword();
  backend.serve(3);
  backend.raise_exception();
  OperationConfig write;
  write.kind = "pdo_write";
  write.pdo_number = 1;
  write.field = "word";
  EXPECT_THROW(controller.execute_configured_operation(write, "io", {1, 2}), BusException);
  EXPECT_EQ(next_send(), loaded_then({"rpdo 5 1 len 8: 11 12 13 06 15 16 17 18"}));
}

TEST_F(WriteOdToShadow, refresh_as_the_first_load_takes_what_the_node_holds) {
  mirror_controlword();
  EXPECT_EQ(last(refresh()), sent(start));
}

TEST_F(WriteOdToShadow, after_enable_and_quick_stop_a_fresh_image_carries_enable_operation) {
  backend.objects[{controlword, 0}] = {0x02, 0x00};  // what the quick stop has left in the drive
  board.pdos = {{1, "RPDO", 0, {{controlword, 0, 16, "controlword"}, {0x2000, 2, 8, "byte"}}}};
  for (const char* kind : {"ci402_enable", "ci402_quick_stop"}) {
    OperationConfig drive;
    drive.kind = kind;
    EXPECT_TRUE(controller.execute_configured_operation(drive, "wheel", {}).ok);
  }
  OperationConfig neighbour;
  neighbour.kind = "pdo_write";
  neighbour.pdo_number = 1;
  neighbour.field = "byte";
  EXPECT_EQ(controller.execute_configured_operation(neighbour, "", {0xA1}), ok("OK"));
  EXPECT_EQ(last(backend.calls), "rpdo 5 1 len 3: 0F 00 A1 00 00 00 00 00");
}

TEST_F(WriteOdToShadow, image_that_is_not_loaded_keeps_the_bytes_until_a_load_succeeds) {
  mirror_controlword();
  EXPECT_EQ(unsynced_send(), "rpdo 5 1 len 8: 00 00 00 06 00 00 00 00");
}

TEST_F(WriteOdToShadow, refresh_brings_back_what_the_node_holds) {
  next_send();
  mirror_controlword();
  EXPECT_EQ(last(refresh()), sent(start));
}

TEST_F(WriteOdToShadow, makes_no_bus_call) {
  op.kind = "ci402_disable";
  run({}, "wheel");
  EXPECT_EQ(backend.calls, Calls{"write 5 0x2001/0 06 00"});
}

TEST_F(WriteOdToShadow, later_write_replaces_an_earlier_one) {
  board.pdos = {{1, "RPDO", 0, {{mode, 0, 8, ""}}}};
  next_send(1);
  mirror_mode(1);
  mirror_mode(4);
  EXPECT_EQ(next_send(1), Calls{"rpdo 5 1 len 1: 04 00 00 00 00 00 00 00"});
}

TEST_F(WriteOdToShadow, unsent_bytes_of_a_failed_send_stay_beside_the_mirrored_ones) {
  next_send();
  OperationConfig write;
  write.kind = "pdo_write";
  write.pdo_number = 1;
  write.field = "word";
  backend.refuse();
  EXPECT_EQ(controller.execute_configured_operation(write, "", {0xA1, 0xA2}),
            failed("RPDO send failed"));
  mirror_controlword();
  EXPECT_EQ(next_send(), Calls{"rpdo 5 1 len 8: A1 A2 13 06 15 16 17 18"});
}

}  // namespace
}  // namespace velmora_can_bridge

// Which drive and actuator operations wait for whom.
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

#include "support/blocked_thread.hpp"
#include "support/drive_test.hpp"
#include "support/patience.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

bool is_send(const std::string& call) { return call.rfind("rpdo", 0) == 0; }

/// Pumps are the claw's controlword by RPDO and its sub-index 7 by SDO.
OperationConfig operation(const char* kind, const char* transport = "", const char* action = "") {
  OperationConfig op;
  op.kind = kind;
  op.transport = transport;
  op.action = action;
  op.index = 0x6840;
  op.index_offset = 0xBF;
  op.pump_pdo_number = 2;
  op.rpdo_channels = {0};
  op.sdo_channels = {7};
  return op;
}

struct LockRow {
  const char* name;
  OperationConfig op;
  Bytes payload;
  OperationResult result;
  const char* device = "claw";
};

void PrintTo(const LockRow& row, std::ostream* out) { *out << row.name; }

/// No RPDO carries the claw "unmapped".
class LockingTest : public DriveTest {
 protected:
  LockingTest() {
    board.device_od_map["unmapped"] = {"claw", 0x7040, 0x3000};
    backend.objects[{0x3000, 1}] = {1};
    backend.objects[{0x3000, 2}] = {2};
  }

  OperationResult run_row(const LockRow& row) {
    return controller.execute_configured_operation(row.op, row.device, row.payload);
  }

  /// Sends RPDO 2, the claw's; the frame leaves when `meanwhile` has ended.
  void send_claw(const std::function<void()>& meanwhile) {
    OperationConfig write;
    write.kind = "pdo_write";
    write.pdo_number = 2;
    write.field = "other";
    backend.during_call = [&](const std::string& call) {
      if (is_send(call)) {
        meanwhile();
      } else if (during_write) {
        during_write(call);
      }
    };
    EXPECT_EQ(controller.execute_configured_operation(write, "", {0xA1}), ok("OK"));
  }

  /// Runs during every call but a send.
  std::function<void(const std::string& call)> during_write;
};

const std::vector<LockRow> by_sdo{
    {"quick_stop", operation("ci402_quick_stop"), {}, ok("Quick stop sent")},
    {"ramp", operation("ci402_ramp"), {1, 0, 0, 0}, ok("Ramp set to 1")},
    {"target_by_sdo",
     operation("ci402_set_target", "sdo"),
     {1, 0},
     ok("Target set via SDO 0x68FF value=1")},
    {"target_that_no_rpdo_maps",
     operation("ci402_set_target"),
     {1, 0},
     ok("Target set via SDO 0x70FF value=1"),
     "unmapped"},
    {"query", operation("claw_action", "", "query"), {}, ok("OK", {1, 2})},
    {"pump_by_transport", operation("pump_duty", "sdo"), {0, 1, 2}, ok("Pump duty set")},
    {"pump_by_channel", operation("pump_duty"), {7, 1, 2}, ok("Pump duty set")},
};

const std::vector<LockRow> by_sdo_with_mirror{
    {"enable", operation("ci402_enable"), {}, ok("Motor enabled")},
    {"disable", operation("ci402_disable"), {}, ok("Motor disabled")},
    {"set_mode", operation("ci402_set_mode"), {4}, ok("Mode set to 4")},
    {"extend", operation("claw_action", "", "extend"), {}, ok("Claw extend command sent")},
    {"home", operation("claw_action", "", "home"), {}, ok("Claw home command sent")},
};

const std::vector<LockRow> by_rpdo{
    {"target", operation("ci402_set_target"), {1, 0}, ok("Target set via RPDO 0x68FF value=1")},
    {"pump", operation("pump_duty"), {0, 1, 2}, ok("Pump duty set")},
};

// --- operations that mirror nothing, while a frame is sent ---

class DriveWhileAFrameIsSent : public LockingTest, public testing::WithParamInterface<LockRow> {};

TEST_P(DriveWhileAFrameIsSent, sdo_operation_completes) {
  std::future<OperationResult> other;
  send_claw([&] {
    other = std::async(std::launch::async, [&] { return run_row(GetParam()); });
    EXPECT_TRUE(is_done(other));
  });
  EXPECT_EQ(other.get(), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Operations, DriveWhileAFrameIsSent, testing::ValuesIn(by_sdo), row_name);

// --- operations that mirror, while a frame is sent ---

struct MirrorRow {
  LockRow operation;
  /// The recorded mode, and the bus calls, by the time the first mirror waits.
  std::uint8_t mode;
  Calls before;
  Calls after;
  const char* image;
};

void PrintTo(const MirrorRow& row, std::ostream* out) { *out << row.operation.name; }

class MirrorWhileAFrameIsSent : public LockingTest, public testing::WithParamInterface<MirrorRow> {
 protected:
  static constexpr auto frame = "rpdo 5 2 len 8: 21 22 23 A1 25 26 27 28";
};

TEST_P(MirrorWhileAFrameIsSent, waits_after_the_transfers_and_the_record) {
  const MirrorRow& row = GetParam();
  std::promise<void> written;
  during_write = [&](const std::string& call) {
    if (call == row.before.back()) {
      written.set_value();
    }
  };
  std::future<OperationResult> other;
  send_claw([&] {
    other = std::async(std::launch::async, [&] { return run_row(row.operation); });
    EXPECT_TRUE(is_done(written.get_future()));
    EXPECT_TRUE(comes_true([&] { return controller.motor_mode("claw") == row.mode; }));
    EXPECT_TRUE(still_waits(other));
    Calls so_far{frame};
    so_far.insert(so_far.end(), row.before.begin(), row.before.end());
    EXPECT_EQ(backend.calls, so_far);
  });
  EXPECT_EQ(other.get(), row.operation.result);
  backend.during_call = nullptr;

  backend.calls.erase(backend.calls.begin(),
                      backend.calls.begin() + static_cast<std::ptrdiff_t>(row.before.size() + 1));
  EXPECT_EQ(backend.calls, row.after);
  EXPECT_EQ(image(2), row.image);
}

INSTANTIATE_TEST_SUITE_P(
    Operations, MirrorWhileAFrameIsSent,
    testing::Values(
        MirrorRow{by_sdo_with_mirror[0],
                  7,
                  {"write 5 0x6860/0 07", "write 5 0x6840/0 06 00", "write 5 0x6840/0 0F 00"},
                  {},
                  "rpdo 5 2 len 8: 0F 00 23 A1 25 26 27 28"},
        MirrorRow{by_sdo_with_mirror[1],
                  7,
                  {"write 5 0x6840/0 06 00"},
                  {},
                  "rpdo 5 2 len 8: 06 00 23 A1 25 26 27 28"},
        MirrorRow{by_sdo_with_mirror[2],
                  4,
                  {"write 5 0x6860/0 04"},
                  {},
                  "rpdo 5 2 len 8: 21 22 04 A1 25 26 27 28"},
        MirrorRow{by_sdo_with_mirror[3],
                  3,
                  {"write 5 0x6860/0 03"},
                  {"write 5 0x6840/0 06 00", "write 5 0x6840/0 0F 00", "write 5 0x3000/9 01"},
                  "rpdo 5 2 len 8: 0F 00 03 A1 25 26 27 28"},
        MirrorRow{by_sdo_with_mirror[4],
                  6,
                  {"write 5 0x6860/0 06"},
                  {"write 5 0x6840/0 0F 00", "write 5 0x6840/0 1F 00"},
                  "rpdo 5 2 len 8: 1F 00 06 A1 25 26 27 28"}),
    [](const auto& row) { return std::string(row.param.operation.name); });

// --- turns on the images ---

/// Operations that wait for the images while a frame of RPDO 2 is sent, each started when those
/// before it wait. All of them write RPDO 1, so that its frames tell in which order they went.
class ImageTurns : public LockingTest {
 protected:
  using Waiting = BlockedThread<OperationResult>;

  /// Writes one byte of RPDO 1.
  void start_write(std::uint8_t value, bool is_urgent = false) {
    OperationConfig write;
    write.kind = "pdo_write";
    write.pdo_number = 1;
    write.field = "other";
    threads.push_back(std::make_unique<Waiting>([this, write, value, is_urgent] {
      const auto scope = is_urgent ? std::make_unique<UrgentScope>() : nullptr;
      return controller.execute_configured_operation(write, "", {value});
    }));
  }

  /// Reloads the image of RPDO 1, then writes.
  void start_refresh(std::uint8_t value) {
    OperationConfig write;
    write.kind = "pdo_write";
    write.pdo_number = 1;
    write.field = "other";
    write.refresh_shadow = 1;
    threads.push_back(std::make_unique<Waiting>([this, write, value] {
      return controller.execute_configured_operation(write, "", {value});
    }));
  }

  /// A command to the drive "wheel", which is written by SDO at once and then mirrored.
  void start_drive(const char* kind, const Bytes& payload = {}) {
    OperationConfig drive;
    drive.kind = kind;
    threads.push_back(std::make_unique<Waiting>([this, drive, payload] {
      return controller.execute_configured_operation(drive, "wheel", payload);
    }));
    // What the thread has noted in the backend is there for the next one.
    EXPECT_GT(calls_noted, 0);
  }

  /// The frames of RPDO 1 that leave after a frame of RPDO 2, during which `start_all` starts them.
  Calls frames_after(std::function<void()> start_all) {
    backend.during_call = [this, start_all = std::move(start_all)](const std::string& call) {
      ++calls_noted;
      if (is_send(call) && !std::exchange(has_begun, true)) {
        start_all();
      }
    };
    OperationConfig write;
    write.kind = "pdo_write";
    write.pdo_number = 2;
    write.field = "other";
    EXPECT_EQ(controller.execute_configured_operation(write, "", {0xA1}), ok("OK"));
    for (const auto& thread : threads) {
      EXPECT_TRUE(thread->is_blocked());
      EXPECT_TRUE(is_done(thread->result()));
      EXPECT_TRUE(thread->result().get().ok);
    }
    Calls frames;
    for (const std::string& call : backend.calls) {
      if (call.rfind("rpdo 5 1 len 8: ", 0) == 0) {
        frames.push_back(call.substr(16));
      }
    }
    return frames;
  }

  // Raised by each call when the backend has noted it.
  std::atomic<int> calls_noted{0};
  // Changed with the images locked.
  bool has_begun = false;
  std::vector<std::unique_ptr<Waiting>> threads;
};

TEST_F(ImageTurns, rpdo_writes_go_in_the_order_in_which_they_came_refreshing_ones_too) {
  EXPECT_EQ(
      frames_after([&] {
        start_refresh(0xA1);
        start_write(0xA2);
        start_refresh(0xA3);
        start_refresh(0xA4);
        start_write(0xA5);
        start_write(0xA6);
      }),
      (Calls{"11 12 13 A1 15 16 17 18", "11 12 13 A2 15 16 17 18", "11 12 13 A3 15 16 17 18",
             "11 12 13 A4 15 16 17 18", "11 12 13 A5 15 16 17 18", "11 12 13 A6 15 16 17 18"}));
}

TEST_F(ImageTurns, urgent_rpdo_write_goes_before_all_that_wait) {
  EXPECT_EQ(
      frames_after([&] {
        start_refresh(0xA1);
        start_write(0xA2);
        start_write(0xA3, true);
      }),
      (Calls{"11 12 13 A3 15 16 17 18", "11 12 13 A1 15 16 17 18", "11 12 13 A2 15 16 17 18"}));
}

TEST_F(ImageTurns, mirror_takes_its_turn_among_the_rpdo_writes) {
  EXPECT_EQ(frames_after([&] {
              start_write(0xA1);
              start_drive("ci402_set_mode", {4});
              start_write(0xA2);
            }),
            (Calls{"11 12 13 A1 15 16 17 18", "11 12 04 A2 15 16 17 18"}));
}

TEST_F(ImageTurns, mirror_of_disable_goes_before_all_that_wait) {
  EXPECT_EQ(frames_after([&] {
              start_write(0xA1);
              start_drive("ci402_disable");
            }),
            Calls{"06 00 13 A1 15 16 17 18"});
}

TEST_F(ImageTurns, mirror_of_an_enable_that_waits_does_not_undo_that_of_a_later_disable) {
  EXPECT_EQ(frames_after([&] {
              start_drive("ci402_enable");
              start_drive("ci402_disable");
              start_write(0xA1);
            }),
            Calls{"06 00 13 A1 15 16 17 18"});
}

// --- forgetting ---

TEST_F(LockingTest, forgetting_returns_at_once_while_a_frame_is_sent) {
  send_claw([&] {
    const auto forgotten =
        std::async(std::launch::async, [&] { controller.forget_rpdo_shadows(); });
    EXPECT_TRUE(is_done(forgotten));
  });
  backend.during_call = nullptr;
  EXPECT_EQ(next_send(1).size(), 5U);
  EXPECT_EQ(next_send(2).size(), 5U);
}

TEST_F(LockingTest, operation_under_way_when_images_are_forgotten_ends_as_it_is) {
  controller.forget_rpdo_shadows();
  bool forgets = true;
  backend.during_call = [&](const std::string& call) {
    if (forgets && call == "read 5 0x6061/0") {
      controller.forget_rpdo_shadows();
    }
  };
  EXPECT_EQ(last(next_send(1)), "rpdo 5 1 len 8: 11 12 13 14 15 16 17 18");
  forgets = false;
  EXPECT_EQ(next_send(1).size(), 5U) << "the next one loads afresh";
  EXPECT_EQ(next_send(1).size(), 1U);
}

// --- what is urgent ---

class UrgentOperations : public LockingTest, public testing::WithParamInterface<LockRow> {};

TEST_P(UrgentOperations, are_quick_stop_and_disable_alone) {
  const std::string name = GetParam().name;
  const bool is_stop = name == "quick_stop" || name == "disable";
  std::vector<bool> urgent;
  backend.during_call = [&](const std::string& /*call*/) {
    urgent.push_back(UrgentScope::is_active());
  };
  EXPECT_EQ(run_row(GetParam()), GetParam().result);
  EXPECT_EQ(urgent, std::vector<bool>(backend.calls.size(), is_stop));
  EXPECT_FALSE(UrgentScope::is_active());
}

INSTANTIATE_TEST_SUITE_P(BySdo, UrgentOperations, testing::ValuesIn(by_sdo), row_name);
INSTANTIATE_TEST_SUITE_P(Mirroring, UrgentOperations, testing::ValuesIn(by_sdo_with_mirror),
                         row_name);
INSTANTIATE_TEST_SUITE_P(ByRpdo, UrgentOperations, testing::ValuesIn(by_rpdo), row_name);

// --- what is held during a bus call ---

/// Tries both locks from other threads during every bus call of an operation.
class LockDuringBusCalls : public LockingTest {
 protected:
  LockDuringBusCalls() {
    controller.forget_rpdo_shadows();
    backend.during_call = [&](const std::string& /*call*/) {
      images.push_back(std::async(std::launch::async, [&] { touch_images(controller); }));
      modes.push_back(
          std::async(std::launch::async, [&] { return controller.motor_mode("claw"); }));
      during_a_call();
    };
  }

  std::function<void()> during_a_call;
  // Ended only when the operation has released what they wait for.
  std::vector<std::future<void>> images;
  std::vector<std::future<std::uint8_t>> modes;
};

class SdoLockDuringBusCalls : public LockDuringBusCalls,
                              public testing::WithParamInterface<LockRow> {};

TEST_P(SdoLockDuringBusCalls, none_is_held) {
  bool free = true;
  during_a_call = [&] { free = free && is_done(images.back()) && is_done(modes.back()); };
  EXPECT_EQ(run_row(GetParam()), GetParam().result);
  EXPECT_TRUE(free);
  EXPECT_EQ(images.size(), backend.calls.size());
  EXPECT_FALSE(backend.calls.empty());
}

INSTANTIATE_TEST_SUITE_P(BySdo, SdoLockDuringBusCalls, testing::ValuesIn(by_sdo), row_name);
INSTANTIATE_TEST_SUITE_P(Mirroring, SdoLockDuringBusCalls, testing::ValuesIn(by_sdo_with_mirror),
                         row_name);

class RpdoLockDuringBusCalls : public LockDuringBusCalls,
                               public testing::WithParamInterface<LockRow> {};

TEST_P(RpdoLockDuringBusCalls, images_are_locked_from_the_load_to_the_send_but_modes_are_not) {
  bool images_locked = true;
  bool modes_free = true;
  during_a_call = [&] {
    images_locked = images_locked && still_waits(images.back());
    modes_free = modes_free && is_done(modes.back());
  };
  EXPECT_EQ(run_row(GetParam()), GetParam().result);
  EXPECT_TRUE(images_locked);
  EXPECT_TRUE(modes_free);
  EXPECT_EQ(images.size(), 5U);
  EXPECT_TRUE(is_send(last(backend.calls)));
}

INSTANTIATE_TEST_SUITE_P(ByRpdo, RpdoLockDuringBusCalls, testing::ValuesIn(by_rpdo), row_name);

}  // namespace
}  // namespace velmora_can_bridge

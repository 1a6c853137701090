// What tests of drives and actuators share: a node with a drive and a claw, each carried by an
// RPDO.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/shadow_test.hpp"

namespace velmora_can_bridge {

/// One bus call of a sequence, and what is left behind when it fails.
struct FailingStep {
  const char* name;
  /// Position among the bus calls of the sequence.
  std::size_t position;
  /// The operation's message when the node refuses the call.
  const char* message;
  /// The mode of operation recorded afterwards.
  std::uint8_t mode;
  /// The send that shows the image afterwards.
  const char* image;
};

inline void PrintTo(const FailingStep& row, std::ostream* out) { *out << row.name; }

/// Node 5 with the drive "wheel" at 0x6040, carried by RPDO 1, and the claw "claw" at 0x6840 with
/// its homing record at 0x3000, carried by RPDO 2. Each RPDO: "controlword" at bytes 0 and 1,
/// "mode" at 2, another object at 3, "velocity" at 4 to 7. Both images are loaded, with the bytes
/// 11 to 18 and 21 to 28, and both devices have the recorded mode 7, which neither image shows.
class DriveTest : public ShadowTest {
 protected:
  DriveTest() {
    board.pdos = {carrying(1, 0x6040), carrying(2, 0x6840)};
    board.device_od_map = {{"wheel", {"ci402", 0x6040, 0}}, {"claw", {"claw", 0x6840, 0x3000}}};
    set_drive(0x6040, start);
    set_drive(0x6840, restarted);
    set_mode("wheel", 7);
    set_mode("claw", 7);
    controller.forget_rpdo_shadows();  // the mirrored modes, which would stay
    next_send(1);
    next_send(2);
  }

  /// Sets the mode of a device by the operation, and drops the bus calls of it.
  void set_mode(const std::string& device, std::uint8_t mode) {
    OperationConfig setting;
    setting.kind = "ci402_set_mode";
    EXPECT_TRUE(controller.execute_configured_operation(setting, device, {mode}).ok);
    backend.calls.clear();
  }

  OperationResult run_wheel(const Bytes& payload = {}) { return run(payload, "wheel"); }
  OperationResult run_claw(const Bytes& payload = {}) { return run(payload, "claw"); }

  /// The send that shows the image of the RPDO, which must be loaded.
  std::string image(std::uint8_t rpdo = 1) {
    const Calls calls = next_send(rpdo);
    EXPECT_EQ(calls.size(), 1U);
    return last(calls);
  }

  /// Runs `op`, whose bus calls are `calls`, with one of them refused.
  void expect_refused(const FailingStep& row, const Calls& calls, const std::string& device,
                      const Bytes& payload = {}) {
    backend.serve(row.position);
    backend.refuse();
    EXPECT_EQ(run(payload, device), failed(row.message));
    expect_left(row, calls, device);
  }

  /// As `expect_refused`, but the call throws.
  void expect_thrown(const FailingStep& row, const Calls& calls, const std::string& device,
                     const Bytes& payload = {}) {
    backend.serve(row.position);
    backend.raise_exception();
    EXPECT_THROW(run(payload, device), BusException);
    expect_left(row, calls, device);
    EXPECT_TRUE(run(payload, device).ok);
  }

 private:
  static PdoConfig carrying(std::uint8_t rpdo, std::uint16_t controlword) {
    const auto at = [&](unsigned offset) {
      return static_cast<std::uint16_t>(controlword + offset);
    };
    return {rpdo,
            "RPDO",
            0,
            {{at(0), 0, 16, "controlword"},
             {at(0x20), 0, 8, "mode"},
             {at(0x21), 0, 8, "other"},
             {at(0xBF), 0, 32, "velocity"}}};
  }

  void set_drive(std::uint16_t controlword, const Frame& frame) {
    const auto object = [&](unsigned offset) -> Bytes& {
      return backend.objects[{static_cast<std::uint16_t>(controlword + offset), std::uint8_t{0}}];
    };
    object(0) = {frame[0], frame[1]};
    object(0x20) = {frame[2]};
    object(0x21) = {frame[3]};
    object(0xBF) = {frame[4], frame[5], frame[6], frame[7]};
  }

  void expect_left(const FailingStep& row, Calls calls, const std::string& device) {
    calls.resize(row.position + 1);
    EXPECT_EQ(backend.calls, calls);
    EXPECT_EQ(controller.motor_mode(device), row.mode);
    EXPECT_EQ(image(device == "claw" ? 2 : 1), row.image);
  }
};

}  // namespace velmora_can_bridge

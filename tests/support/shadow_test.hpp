// What tests of writes through the image of an RPDO share: a node whose one RPDO fills the frame.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "support/controller_test.hpp"

namespace velmora_can_bridge {

using Calls = std::vector<std::string>;
using Frame = std::array<std::uint8_t, 8>;

/// The last of the calls, also when there is none.
inline std::string last(const Calls& calls) { return calls.empty() ? "no call" : calls.back(); }

/// Names the rows of a table in the output of the test runner.
inline constexpr auto row_name = [](const auto& row) { return std::string(row.param.name); };

/// One bus call of a write that fails: its position among the calls, and how it fails.
struct FailingCall {
  const char* name;
  std::size_t position;
  bool throws;
};

inline void PrintTo(const FailingCall& row, std::ostream* out) { *out << row.name; }

/// The reads of a load of `ShadowTest`'s RPDO, then the one call that delivers the change.
inline const std::vector<FailingCall> failing_calls{
    {"first_read_refused", 0, false},  {"first_read_throws", 0, true},
    {"second_read_refused", 1, false}, {"second_read_throws", 1, true},
    {"third_read_refused", 2, false},  {"third_read_throws", 2, true},
    {"fourth_read_refused", 3, false}, {"fourth_read_throws", 3, true},
    {"delivery_refused", 4, false},    {"delivery_throws", 4, true},
};

/// Node 5 with RPDO 1: "word" at bytes 0 and 1, "byte" at 2, "flags" at 3, "wide" at 4 to 7. The
/// node's objects hold the bytes 11 to 18 in frame order.
class ShadowTest : public ControllerTest {
 protected:
  ShadowTest() {
    board.pdos = {{1,
                   "RPDO",
                   0,
                   {{0x2000, 1, 16, "word"},
                    {0x2000, 2, 8, "byte"},
                    {0x2001, 0, 8, "flags"},
                    {0x2002, 0, 32, "wide"}}}};
    board.device_od_map = {{"io", {"io", 0x2000, 0}}};
    set_node(start);
  }

  /// Gives the node's objects the bytes of `frame`.
  void set_node(const Frame& frame) {
    backend.objects = {{{0x2000, 1}, {frame[0], frame[1]}},
                       {{0x2000, 2}, {frame[2]}},
                       {{0x2001, 0}, {frame[3]}},
                       {{0x2002, 0}, {frame[4], frame[5], frame[6], frame[7]}}};
  }

  static std::string sent(const Frame& frame) { return ScriptedBackend::rpdo_text(5, 1, frame, 8); }

  /// The reads that load the image, and the calls after them.
  static Calls loaded_then(const Calls& rest) {
    Calls calls = loads;
    calls.insert(calls.end(), rest.begin(), rest.end());
    return calls;
  }

  /// The calls of an operation that changes no field of the RPDO: the reads of a load unless the
  /// image is synced, and the send.
  Calls next_send(std::uint8_t rpdo = 1) { return calls_of(unchanging(rpdo)); }

  /// As `next_send`, but shows the image as it stands, synced or not: its one call is the send
  /// after a reload of which the node refused all `reads`.
  std::string unsynced_send(std::uint8_t rpdo = 1, std::size_t reads = 4) {
    OperationConfig refreshing = unchanging(rpdo);
    refreshing.refresh_shadow = 1;
    for (std::size_t read = 0; read < reads; ++read) {
      backend.refuse();
    }
    return last(calls_of(refreshing));
  }

  /// Runs `op`, which loads the image unless it is synced, with one call failing. Nothing of a
  /// write is left when the load fails; the changed image is when the delivery does.
  void expect_failing_call(const FailingCall& row, const Bytes& payload, const std::string& culprit,
                           const std::string& delivery, const std::string& not_delivered,
                           const Frame& changed, const std::string& device = "device") {
    const bool load_fails = row.position < loads.size();
    fail(row);
    if (row.throws) {
      EXPECT_THROW(run(payload, device), BusException);
    } else {
      EXPECT_EQ(run(payload, device),
                failed(load_fails ? "RPDO shadow sync failed for " + culprit : not_delivered));
    }
    EXPECT_EQ(backend.calls, until(row, loaded_then({delivery})));
    EXPECT_EQ(next_send(), load_fails ? loaded_then({sent(start)}) : Calls{sent(changed)});
  }

  /// As above, for a write delivered by a send.
  void expect_failing_call(const FailingCall& row, const Bytes& payload, const std::string& culprit,
                           const Frame& changed, const std::string& device = "device") {
    expect_failing_call(row, payload, culprit, sent(changed), "RPDO send failed", changed, device);
  }

  /// Runs `op`, which reloads the image, with one call failing. A field whose read is refused keeps
  /// its bytes and the write goes on; an exception of a read leaves the image of before.
  template <typename Change>
  void expect_failing_call_of_refresh(const FailingCall& row, const Bytes& payload,
                                      const Change& change) {
    next_send();
    backend.calls.clear();
    set_node(restarted);
    const bool load_fails = row.position < loads.size();
    Frame changed = restarted;
    if (load_fails) {
      static constexpr std::size_t ends[] = {0, 2, 3, 4, 8};
      std::copy(start.begin() + ends[row.position], start.begin() + ends[row.position + 1],
                changed.begin() + ends[row.position]);
    }
    change(changed);

    fail(row);
    if (row.throws) {
      EXPECT_THROW(run(payload), BusException);
      EXPECT_EQ(backend.calls, until(row, loaded_then({sent(changed)})));
    } else {
      EXPECT_EQ(run(payload), load_fails ? ok("OK") : failed("RPDO send failed"));
      EXPECT_EQ(backend.calls, loaded_then({sent(changed)}));
    }
    EXPECT_EQ(next_send(), Calls{sent(load_fails && row.throws ? start : changed)});
  }

  static constexpr Frame start{0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18};
  static constexpr Frame restarted{0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28};
  static inline const Calls loads{"read 5 0x2000/1", "read 5 0x2000/2", "read 5 0x2001/0",
                                  "read 5 0x2002/0"};

 private:
  /// A patch that no payload byte is left for.
  OperationConfig unchanging(std::uint8_t rpdo) const {
    OperationConfig patch;
    patch.kind = "pdo_patch";
    patch.pdo_number = rpdo;
    for (const PdoConfig& pdo : board.pdos) {
      if (patch.fields.empty() && pdo.number == rpdo && pdo.direction == "RPDO") {
        patch.fields = {pdo.mappings.at(0).field};
      }
    }
    return patch;
  }

  Calls calls_of(const OperationConfig& operation) {
    backend.calls.clear();
    EXPECT_EQ(controller.execute_configured_operation(operation, "nobody", {}), ok("OK"));
    return std::exchange(backend.calls, {});
  }

  void fail(const FailingCall& row) {
    backend.serve(row.position);
    if (row.throws) {
      backend.raise_exception();
    } else {
      backend.refuse();
    }
  }

  static Calls until(const FailingCall& row, Calls calls) {
    calls.resize(row.position + 1);
    return calls;
  }
};

}  // namespace velmora_can_bridge

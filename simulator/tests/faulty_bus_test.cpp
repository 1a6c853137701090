// Operations through frames on a bus that loses, delays and doubles some of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/chosen_seed.hpp"
#include "velmora_can_bridge/bus/can_bus_backend.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"
#include "velmora_can_bridge/simulator/simulated_node.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

constexpr std::uint16_t word_object = 0x3000;
constexpr std::uint16_t text_object = 0x3001;
constexpr std::uint16_t rpdo_cob_id = 0x205;

/// How often which fault strikes, in percent of the frames. Not doubled and late together: of two
/// answers to one request the second, coming after the next request for the same object, is that
/// request's answer as far as SDO can tell.
struct FaultCase {
  std::string name;
  int lost = 0;
  int late = 0;
  int doubled = 0;
};

void PrintTo(const FaultCase& row, std::ostream* out) { *out << row.name; }

class FaultyBus : public testing::TestWithParam<FaultCase> {
 protected:
  FaultyBus() {
    node.add_object(word_object, 0, {ObjectAccess::read_write, {1, 2}});
    node.add_object(text_object, 0, {ObjectAccess::read_write, Bytes(40, 7), true, 100});
    bus.set_fault_rule([this](const CanFrame& frame) { return faulty(frame); });
  }

  /// Late frames come after at most 490 ms, so a late request with a late answer is over the
  /// time-out, but within the quarantine.
  std::vector<CanDelivery> faulty(const CanFrame& frame) {
    if (happens(GetParam().lost)) {
      return {};
    }
    const milliseconds delay(happens(GetParam().late) ? 1 + below(490) : 0);
    std::vector<CanDelivery> deliveries(1, {frame, delay});
    if (happens(GetParam().doubled)) {
      deliveries.push_back(deliveries.front());
    }
    return deliveries;
  }

  void receive(const CanFrame& frame, std::vector<CanFrame>& answers) {
    if (frame.id == rpdo_cob_id) {
      node.receive_rpdo(1, frame.data, frame.length);
    } else if (const auto answer = server.answer(frame)) {
      answers.push_back(*answer);
    }
  }

  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
  bool happens(int percent) { return below(100) < percent; }

  Bytes random_bytes(int count) {
    Bytes bytes(static_cast<std::size_t>(count));
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(below(256));
    }
    return bytes;
  }

  OperationResult run(const std::string& kind, std::uint16_t index, const Bytes& payload) {
    OperationConfig op;
    op.kind = kind;
    op.index = index;
    op.sub_indices = {1, 2, 3, 4};
    op.field = "changing";
    op.action = "home";
    const auto start = clock->now();
    OperationResult result = controller.execute_configured_operation(op, "claw", payload);
    elapsed = clock->now() - start;
    EXPECT_NE(result.message, "");
    EXPECT_TRUE(result.ok || result.data.empty()) << result.message;
    return result;
  }

  /// After a quarantine as long as late answers may make it.
  void expect_transfer_bound() const {
    const SdoTimes times;
    const milliseconds longest_quarantine(5000);
    EXPECT_LE(elapsed.count(),
              std::chrono::nanoseconds(longest_quarantine + times.transfer_timeout).count());
  }

  void read(std::uint16_t index) {
    const Bytes before = node.object_value(index, 0).value();
    const OperationResult result = run("sdo_read", index, {});
    expect_transfer_bound();
    if (result.ok) {
      EXPECT_THAT(result.data, testing::AnyOf(before, node.object_value(index, 0).value()));
    }
    count(result);
  }

  void write(std::uint16_t index, const Bytes& payload) {
    const OperationResult result = run("sdo_write", index, payload);
    expect_transfer_bound();
    if (result.ok) {
      EXPECT_EQ(node.object_value(index, 0), payload);
    } else {
      const std::optional<BusError> error = backend.last_error(node_id);
      ASSERT_TRUE(error);
      EXPECT_NE(error->kind, BusErrorKind::bus_fault);
    }
    count(result);
  }

  void read_identity() {
    const OperationResult result = run("read_multi", 0x1018, {});
    if (result.ok) {
      EXPECT_EQ(result.data, (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0}));
    }
    count(result);
  }

  void write_field() {
    const Bytes payload = random_bytes(2);
    const OperationResult result = run("pdo_write", 0x2000, payload);
    sent_fields.insert(payload);
    EXPECT_EQ(sent_fields.count(node.object_value(0x2000, 1).value()), 1U);
    EXPECT_EQ(node.object_value(0x2000, 2), (Bytes{0x22, 0x33}));
    count(result);
  }

  void drive_claw() {
    static const std::array<const char*, 5> kinds{
        "ci402_enable", "ci402_disable", "ci402_quick_stop", "ci402_set_mode", "claw_action"};
    count(run(kinds.at(static_cast<std::size_t>(below(5))), 0, {6}));
  }

  void one_operation() {
    switch (below(7)) {
      case 0:
        return read(word_object);
      case 1:
        return read(text_object);
      case 2:
        return write(word_object, random_bytes(2));
      case 3:
        return write(text_object, random_bytes(below(60)));
      case 4:
        return read_identity();
      case 5:
        return write_field();
      default:
        return drive_claw();
    }
  }

  void count(const OperationResult& result) { ++(result.ok ? succeeded : failed); }

  const std::uint32_t seed = chosen_seed();
  std::mt19937 random{seed};
  const std::uint8_t node_id = 5;
  const BoardConfig board{{{1, "RPDO", 0, {{0x2000, 1, 16, "changing"}, {0x2000, 2, 16, "kept"}}}},
                          {{"claw", {"claw", 0x6040, 0x2100}}}};
  SimulatedNode node{node_id, board};
  SdoServer server{node_id,
                   [this](std::uint16_t index, std::uint8_t sub_index, Bytes& data) {
                     return node.sdo_upload(index, sub_index, data);
                   },
                   [this](std::uint16_t index, std::uint8_t sub_index, const Bytes& data) {
                     return node.sdo_download(index, sub_index, data);
                   }};
  InProcessBus bus{BusTime::simulated};
  const std::unique_ptr<CanEndpoint> device{bus.open(
      {{0x605}, {rpdo_cob_id}},
      [this](const CanFrame& frame, std::vector<CanFrame>& answers) { receive(frame, answers); })};
  const std::unique_ptr<CanEndpoint> clock{bus.open({})};
  CanBusBackend backend{bus};
  CanOpenNodeController controller{node_id, backend, board};

  std::chrono::nanoseconds elapsed{0};
  std::set<Bytes> sent_fields{{0, 0}};
  int succeeded = 0;
  int failed = 0;
};

TEST_P(FaultyBus, operations_succeed_rightly_or_fail_in_time) {
  constexpr int operations = 3000;
  node.set_object_value(0x2000, 2, {0x22, 0x33});
  for (int operation = 0; operation < operations && !HasFailure(); ++operation) {
    SCOPED_TRACE("--gtest_random_seed=" + std::to_string(seed) + ", operation " +
                 std::to_string(operation));
    one_operation();
  }
  // So that neither side of the test goes untried. One late frame alone is waited for.
  EXPECT_GT(succeeded, operations / 4);
  if (GetParam().lost + GetParam().doubled > 0) {
    EXPECT_GT(failed, 0);
  }
  if (GetParam().lost + GetParam().late + GetParam().doubled == 0) {
    EXPECT_EQ(failed, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, FaultyBus,
    testing::Values(FaultCase{"none", 0, 0, 0}, FaultCase{"one_percent_lost", 1, 0, 0},
                    FaultCase{"ten_percent_lost", 10, 0, 0}, FaultCase{"one_percent_late", 0, 1, 0},
                    FaultCase{"ten_percent_late", 0, 10, 0},
                    FaultCase{"one_percent_doubled", 0, 0, 1},
                    FaultCase{"ten_percent_doubled", 0, 0, 10},
                    FaultCase{"one_percent_lost_or_late", 1, 1, 0},
                    FaultCase{"ten_percent_lost_or_late", 10, 10, 0}),
    [](const testing::TestParamInfo<FaultCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge

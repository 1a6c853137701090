// What operations take from the heap: exactly what their answers and their bus calls are made of.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/allocations.hpp"
#include "support/every_kind.hpp"
#include "support/every_operation.hpp"
#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace velmora_can_bridge {
namespace {

/// Answers every read with four bytes, which take one allocation, and takes everything else.
class PlainBackend : public CanOpenBackend {
 public:
  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                std::vector<std::uint8_t>& data) override {
    data = {1, 2, 3, 4};
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t /*index*/, std::uint8_t /*sub_index*/,
                 const std::vector<std::uint8_t>& /*data*/) override {
    return true;
  }
  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/,
                 const std::array<std::uint8_t, 8>& /*data*/, std::uint8_t /*length*/) override {
    return true;
  }
};

class AllocationBudgetTest : public testing::TestWithParam<EveryOperation> {
 protected:
  OperationResult run() {
    return controller.execute_configured_operation(GetParam().op, device, GetParam().payload);
  }

  const std::uint8_t node_id = 5;
  PlainBackend backend;
  const BoardConfig board = every_operation_board();
  CanOpenNodeController controller{node_id, backend, board};
  const std::string device = GetParam().device;
};

TEST_P(AllocationBudgetTest, repeated_operation_takes_its_budget) {
  EXPECT_TRUE(run().ok);  // loads the image, records the mode
  const std::size_t before = allocations();
  const OperationResult result = run();
  const std::size_t taken = allocations() - before;

  EXPECT_TRUE(result.ok) << result.message;
  EXPECT_EQ(taken, GetParam().allocations) << GetParam().why;
}

INSTANTIATE_TEST_SUITE_P(EveryKind, AllocationBudgetTest, testing::ValuesIn(every_operation()),
                         [](const auto& row) {
                           std::string name = row.param.name;
                           for (char& character : name) {
                             character = character == ' ' || character == '-' ? '_' : character;
                           }
                           return name;
                         });

TEST(AllocationBudgetTableTest, holds_every_kind) { expect_row_for_every_kind(every_operation()); }

}  // namespace
}  // namespace velmora_can_bridge

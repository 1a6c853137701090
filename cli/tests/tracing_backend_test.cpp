#include "tracing_backend.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/scripted_backend.hpp"

namespace velmora_can_bridge {
namespace {

class Tracing : public testing::Test {
 protected:
  ScriptedBackend inner;
  std::vector<std::string> lines;
  std::vector<TransferKind> kinds;
  std::vector<std::optional<std::string>> errors;
  TracingBackend backend{
      inner,
      [this](const Transfer& transfer) {
        lines.push_back(transfer.line);
        kinds.push_back(transfer.kind);
        errors.push_back(transfer.error ? std::make_optional(transfer.error->text) : std::nullopt);
      },
      [](std::uint8_t node_id) {
        BusError error;
        error.text = "the reason of node " + std::to_string(node_id);
        return error;
      }};
};

TEST_F(Tracing, passes_calls_and_answers_on) {
  inner.answer_read({1, 2});
  inner.refuse();
  Bytes data;
  EXPECT_TRUE(backend.sdo_read(5, 0x1018, 1, data));
  EXPECT_FALSE(backend.sdo_write(5, 0x2001, 0, {0x0F, 0}));
  EXPECT_TRUE(backend.send_rpdo(5, 2, {1, 2, 3}, 3));
  EXPECT_EQ(data, (Bytes{1, 2}));
  EXPECT_EQ(inner.calls, (std::vector<std::string>{"read 5 0x1018/1", "write 5 0x2001/0 0F 00",
                                                   "rpdo 5 2 len 3: 01 02 03 00 00 00 00 00"}));
}

TEST_F(Tracing, tells_of_successes) {
  inner.answer_read({0x4D, 0x56});
  Bytes data;
  backend.sdo_read(0x10, 0x1018, 1, data);
  backend.sdo_write(0x10, 0x2001, 12, {});
  backend.send_rpdo(0x10, 2, {1, 0xAB, 3}, 2);
  EXPECT_EQ(lines, (std::vector<std::string>{"node 0x10  SDO read   0x1018/1 -> 4D 56",
                                             "node 0x10  SDO write  0x2001/12 <- no bytes",
                                             "node 0x10  RPDO 2     <- 01 AB"}));
  EXPECT_EQ(kinds, (std::vector<TransferKind>{TransferKind::sdo_read, TransferKind::sdo_write,
                                              TransferKind::rpdo}));
  EXPECT_THAT(errors, testing::Each(std::nullopt));
}

TEST_F(Tracing, tells_of_errors_with_the_reason) {
  inner.refuse({9});
  inner.refuse();
  inner.refuse();
  Bytes data;
  backend.sdo_read(0x10, 0x1018, 1, data);
  backend.sdo_write(0x10, 0x2001, 12, {7});
  backend.send_rpdo(0x10, 2, {}, 0);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "node 0x10  SDO read   0x1018/1: the reason of node 16",
                       "node 0x10  SDO write  0x2001/12 <- 07: the reason of node 16",
                       "node 0x10  RPDO 2     <- no bytes: the reason of node 16"}));
  EXPECT_THAT(errors, testing::Each(std::make_optional<std::string>("the reason of node 16")));
}

}  // namespace
}  // namespace velmora_can_bridge

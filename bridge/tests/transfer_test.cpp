#include "velmora_can_bridge/bridge/transfer.hpp"

#include <gtest/gtest.h>

#include <ostream>

namespace velmora_can_bridge {
namespace {

BusError reason() {
  BusError error;
  error.text = "the reason";
  return error;
}

struct TransferCase {
  const char* name;
  Transfer transfer;
  const char* text;
};

void PrintTo(const TransferCase& row, std::ostream* out) { *out << row.name; }

class TransferText : public testing::TestWithParam<TransferCase> {};

TEST_P(TransferText, names_all_that_it_is) {
  EXPECT_EQ(transfer_text(GetParam().transfer), GetParam().text);
}

constexpr auto read = TransferKind::sdo_read;
constexpr auto write = TransferKind::sdo_write;
constexpr auto sent_rpdo = TransferKind::rpdo;

INSTANTIATE_TEST_SUITE_P(
    of, TransferText,
    testing::Values(TransferCase{"a_read",
                                 {read, 0x10, 0x1018, 1, 0, {0x4D, 0x56}, {}},
                                 "node 0x10  SDO read   0x1018/1 -> 4D 56"},
                    TransferCase{"a_write",
                                 {write, 0x10, 0x2001, 12, 0, {}, {}},
                                 "node 0x10  SDO write  0x2001/12 <- no bytes"},
                    TransferCase{"a_frame",
                                 {sent_rpdo, 0x10, 0, 0, 2, {1, 0xAB}, {}},
                                 "node 0x10  RPDO 2     <- 01 AB"},
                    TransferCase{"a_read_that_failed",
                                 {read, 0x10, 0x1018, 1, 0, {}, reason()},
                                 "node 0x10  SDO read   0x1018/1: the reason"},
                    TransferCase{"a_write_that_failed",
                                 {write, 0x10, 0x2001, 12, 0, {7}, reason()},
                                 "node 0x10  SDO write  0x2001/12 <- 07: the reason"},
                    TransferCase{"a_frame_that_failed",
                                 {sent_rpdo, 0x10, 0, 0, 2, {}, reason()},
                                 "node 0x10  RPDO 2     <- no bytes: the reason"}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace velmora_can_bridge

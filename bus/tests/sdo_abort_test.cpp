#include "velmora_can_bridge/bus/sdo_abort.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>

namespace velmora_can_bridge {
namespace {

struct AbortCase {
  std::string name;
  SdoAbort abort;
  std::uint32_t code;
  std::string text;
};

void PrintTo(const AbortCase& row, std::ostream* out) { *out << row.name; }

class SdoAbortTest : public testing::TestWithParam<AbortCase> {};

TEST_P(SdoAbortTest, has_the_code_of_the_bus_and_its_own_text) {
  EXPECT_EQ(static_cast<std::uint32_t>(GetParam().abort), GetParam().code);
  EXPECT_EQ(sdo_abort_text(GetParam().abort), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    all, SdoAbortTest,
    testing::Values(
        AbortCase{"toggle_not_alternated", SdoAbort::toggle_not_alternated, 0x05030000,
                  "a segment came out of turn"},
        AbortCase{"timed_out", SdoAbort::timed_out, 0x05040000, "the SDO transfer timed out"},
        AbortCase{"unknown_command", SdoAbort::unknown_command, 0x05040001,
                  "the SDO command is unknown"},
        AbortCase{"invalid_block_size", SdoAbort::invalid_block_size, 0x05040002,
                  "the block size is invalid"},
        AbortCase{"invalid_sequence_number", SdoAbort::invalid_sequence_number, 0x05040003,
                  "the sequence number of the block is invalid"},
        AbortCase{"crc_error", SdoAbort::crc_error, 0x05040004,
                  "the checksum of the block is wrong"},
        AbortCase{"out_of_memory", SdoAbort::out_of_memory, 0x05040005,
                  "the node is out of memory"},
        AbortCase{"unsupported_access", SdoAbort::unsupported_access, 0x06010000,
                  "the object cannot be accessed so"},
        AbortCase{"read_of_write_only", SdoAbort::read_of_write_only, 0x06010001,
                  "the object can only be written"},
        AbortCase{"write_of_read_only", SdoAbort::write_of_read_only, 0x06010002,
                  "the object can only be read"},
        AbortCase{"no_such_object", SdoAbort::no_such_object, 0x06020000,
                  "no object at this index"},
        AbortCase{"not_mappable", SdoAbort::not_mappable, 0x06040041,
                  "the object cannot be mapped to a PDO"},
        AbortCase{"pdo_too_long", SdoAbort::pdo_too_long, 0x06040042,
                  "the mapped objects are longer than a PDO"},
        AbortCase{"parameter_incompatible", SdoAbort::parameter_incompatible, 0x06040043,
                  "the parameter does not fit the others"},
        AbortCase{"device_incompatible", SdoAbort::device_incompatible, 0x06040047,
                  "the parameter does not fit the device"},
        AbortCase{"hardware_error", SdoAbort::hardware_error, 0x06060000,
                  "a hardware error of the node"},
        AbortCase{"wrong_length", SdoAbort::wrong_length, 0x06070010,
                  "the length does not fit the object"},
        AbortCase{"value_too_long", SdoAbort::value_too_long, 0x06070012,
                  "too many bytes for the object"},
        AbortCase{"value_too_short", SdoAbort::value_too_short, 0x06070013,
                  "too few bytes for the object"},
        AbortCase{"no_such_sub_index", SdoAbort::no_such_sub_index, 0x06090011,
                  "no such sub-index at this index"},
        AbortCase{"invalid_value", SdoAbort::invalid_value, 0x06090030, "the value is invalid"},
        AbortCase{"value_too_high", SdoAbort::value_too_high, 0x06090031, "the value is too high"},
        AbortCase{"value_too_low", SdoAbort::value_too_low, 0x06090032, "the value is too low"},
        AbortCase{"maximum_below_minimum", SdoAbort::maximum_below_minimum, 0x06090036,
                  "the maximum is below the minimum"},
        AbortCase{"no_sdo_connection", SdoAbort::no_sdo_connection, 0x060A0023,
                  "the node has no resource for it"},
        AbortCase{"general_error", SdoAbort::general_error, 0x08000000, "general error"},
        AbortCase{"cannot_store", SdoAbort::cannot_store, 0x08000020,
                  "the value cannot be transferred or stored"},
        AbortCase{"local_control", SdoAbort::local_control, 0x08000021,
                  "not while the node is controlled locally"},
        AbortCase{"device_state", SdoAbort::device_state, 0x08000022,
                  "not in the present state of the node"},
        AbortCase{"no_object_dictionary", SdoAbort::no_object_dictionary, 0x08000023,
                  "the node has no object dictionary"},
        AbortCase{"no_data", SdoAbort::no_data, 0x08000024, "no data are available"},
        AbortCase{"unknown", static_cast<SdoAbort>(0x08000025), 0x08000025, "unknown abort code"}),
    [](const testing::TestParamInfo<AbortCase>& row) { return row.param.name; });

}  // namespace
}  // namespace velmora_can_bridge

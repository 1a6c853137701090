#include "velmora_can_bridge/values/error_words.hpp"

#include <gtest/gtest.h>

namespace velmora_can_bridge {
namespace {

TEST(EmergencyWords, have_a_row_or_a_class) {
  struct Case {
    std::uint16_t code;
    const char* words;
  };
  const Case cases[] = {
      {0x0000, "no error"},
      {0x0012, "no error"},
      {0x0100, ""},
      {0x1000, "generic error"},
      {0x10FF, "generic error"},
      {0x2310, "continuous over-current at the output"},
      {0x2312, "continuous over-current at the output"},
      {0x2399, "output current"},
      {0x2F00, "current"},
      {0x3210, "DC link over-voltage"},
      {0x3F01, "voltage"},
      {0x4210, "device temperature too high"},
      {0x5F00, "device hardware"},
      {0x6F00, "device software"},
      {0x7121, "motor blocked"},
      {0x7305, "incremental sensor 1"},
      {0x8110, "CAN bus: frames lost"},
      {0x8120, "CAN bus: error passive"},
      {0x8130, "heartbeat or life guarding lost"},
      {0x8140, "CAN bus: back from bus-off"},
      {0x8150, "CAN identifier used twice"},
      {0x8210, "PDO not taken: its length is wrong"},
      {0x8220, "PDO longer than its mapping"},
      {0x8250, "RPDO did not come in time"},
      {0x8611, "following error"},
      {0x8F00, "monitoring"},
      {0x9001, "external error"},
      {0xA000, ""},
      {0xF0AA, "additional functions"},
      {0xFFAA, "error of the manufacturer's own"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(emergency_words(row.code), row.words) << std::hex << row.code;
  }
}

TEST(ErrorRegisterWords, name_every_bit) {
  struct Case {
    std::uint8_t bits;
    const char* words;
  };
  const Case cases[] = {
      {0x00, "no error"},       {0x01, "generic"},
      {0x02, "current"},        {0x04, "voltage"},
      {0x08, "temperature"},    {0x10, "communication"},
      {0x20, "device profile"}, {0x40, "reserved"},
      {0x80, "manufacturer"},   {0x11, "generic, communication"},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(error_register_words(row.bits), row.words) << int{row.bits};
  }
}

}  // namespace
}  // namespace velmora_can_bridge

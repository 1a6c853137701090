#include "velmora_can_bridge/values/error_words.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "joined_words.hpp"

namespace velmora_can_bridge {
namespace {

struct ErrorCode {
  std::uint16_t code;
  std::string_view words;
};

/// In their order. A code that ends in zeros stands for all below it that have no row.
constexpr ErrorCode error_codes[] = {
    {0x0000, "no error"},
    {0x1000, "generic error"},
    {0x2000, "current"},
    {0x2100, "input current"},
    {0x2110, "input short circuit or earth leakage"},
    {0x2120, "input earth leakage"},
    {0x2130, "input short circuit"},
    {0x2200, "current inside the device"},
    {0x2213, "over-current while ramping"},
    {0x2214, "over-current in the sequence"},
    {0x2220, "continuous over-current inside the device"},
    {0x2230, "short circuit or earth leakage inside the device"},
    {0x2240, "earth leakage inside the device"},
    {0x2250, "short circuit inside the device"},
    {0x2300, "output current"},
    {0x2310, "continuous over-current at the output"},
    {0x2320, "motor short circuit or earth leakage"},
    {0x2330, "motor earth leakage"},
    {0x2340, "motor short circuit"},
    {0x2350, "load too high for too long"},
    {0x2351, "load soon too high for too long"},
    {0x3000, "voltage"},
    {0x3100, "mains voltage"},
    {0x3110, "mains over-voltage"},
    {0x3120, "mains under-voltage"},
    {0x3130, "mains phase missing"},
    {0x3134, "mains phases in the wrong order"},
    {0x3140, "mains frequency"},
    {0x3141, "mains frequency too high"},
    {0x3142, "mains frequency too low"},
    {0x3200, "voltage inside the device"},
    {0x3210, "DC link over-voltage"},
    {0x3220, "DC link under-voltage"},
    {0x3230, "load error"},
    {0x3300, "output voltage"},
    {0x3310, "output over-voltage"},
    {0x3320, "armature circuit"},
    {0x3321, "armature circuit interrupted"},
    {0x3330, "field circuit"},
    {0x3331, "field circuit interrupted"},
    {0x4000, "temperature"},
    {0x4100, "ambient temperature"},
    {0x4110, "ambient temperature too high"},
    {0x4120, "ambient temperature too low"},
    {0x4130, "temperature of the supply air"},
    {0x4140, "temperature of the outlet air"},
    {0x4200, "device temperature"},
    {0x4210, "device temperature too high"},
    {0x4220, "device temperature too low"},
    {0x4300, "drive temperature"},
    {0x4310, "drive temperature too high"},
    {0x4320, "drive temperature too low"},
    {0x4400, "supply temperature"},
    {0x4410, "supply temperature too high"},
    {0x4420, "supply temperature too low"},
    {0x5000, "device hardware"},
    {0x5100, "supply"},
    {0x5110, "low-voltage supply"},
    {0x5111, "15 V supply"},
    {0x5112, "24 V supply"},
    {0x5113, "5 V supply"},
    {0x5120, "supply of the intermediate circuit"},
    {0x5200, "control hardware"},
    {0x5210, "measuring circuit"},
    {0x5220, "computing circuit"},
    {0x5300, "operating unit"},
    {0x5400, "power section"},
    {0x5410, "output stages"},
    {0x5420, "chopper"},
    {0x5430, "input stages"},
    {0x5440, "contacts"},
    {0x5450, "fuses"},
    {0x5500, "memory"},
    {0x5510, "working memory"},
    {0x5520, "program memory"},
    {0x5530, "non-volatile memory"},
    {0x6000, "device software"},
    {0x6010, "restart by the watchdog"},
    {0x6100, "internal software"},
    {0x6200, "user software"},
    {0x6300, "data set"},
    {0x6310, "parameters lost"},
    {0x6320, "parameter error"},
    {0x7000, "additional modules"},
    {0x7100, "power module"},
    {0x7110, "brake chopper"},
    {0x7111, "brake chopper failed"},
    {0x7112, "brake chopper over-current"},
    {0x7113, "protection of the brake chopper"},
    {0x7120, "motor"},
    {0x7121, "motor blocked"},
    {0x7122, "motor or its commutation"},
    {0x7123, "motor tilted"},
    {0x7200, "measuring module"},
    {0x7300, "sensor"},
    {0x7301, "tacho failed"},
    {0x7302, "tacho polarity wrong"},
    {0x7303, "resolver 1"},
    {0x7304, "resolver 2"},
    {0x7305, "incremental sensor 1"},
    {0x7306, "incremental sensor 2"},
    {0x7307, "incremental sensor 3"},
    {0x7310, "speed sensor"},
    {0x7320, "position sensor"},
    {0x7400, "computing module"},
    {0x7500, "communication module"},
    {0x7510, "serial interface 1"},
    {0x7520, "serial interface 2"},
    {0x7600, "memory module"},
    {0x8000, "monitoring"},
    {0x8100, "communication"},
    {0x8110, "CAN bus: frames lost"},
    {0x8120, "CAN bus: error passive"},
    {0x8130, "heartbeat or life guarding lost"},
    {0x8140, "CAN bus: back from bus-off"},
    {0x8150, "CAN identifier used twice"},
    {0x8200, "protocol"},
    {0x8210, "PDO not taken: its length is wrong"},
    {0x8220, "PDO longer than its mapping"},
    {0x8230, "multiplexed PDO not taken: no such object"},
    {0x8240, "SYNC of another length than expected"},
    {0x8250, "RPDO did not come in time"},
    {0x8300, "torque control"},
    {0x8311, "torque too high"},
    {0x8312, "difficult start"},
    {0x8313, "torque at standstill"},
    {0x8321, "torque too low"},
    {0x8331, "torque fault"},
    {0x8400, "velocity control"},
    {0x8500, "position control"},
    {0x8600, "positioning"},
    {0x8611, "following error"},
    {0x8612, "reference limit"},
    {0x8700, "synchronisation control"},
    {0x8800, "winding control"},
    {0x8900, "monitoring of process data"},
    {0x8A00, "monitoring of the control"},
    {0x9000, "external error"},
    {0xF000, "additional functions"},
    {0xF001, "deceleration"},
    {0xF002, "sub-synchronous run"},
    {0xF003, "stroke operation"},
    {0xF004, "control"},
    {0xFF00, "error of the manufacturer's own"},
};

std::string_view words_of(std::uint16_t code) {
  const auto* const row = std::find_if(std::begin(error_codes), std::end(error_codes),
                                       [=](const ErrorCode& each) { return each.code == code; });
  return row == std::end(error_codes) ? std::string_view() : row->words;
}

/// Bit 6 has no meaning.
constexpr std::string_view register_bits[] = {"generic",     "current",       "voltage",
                                              "temperature", "communication", "device profile",
                                              "reserved",    "manufacturer"};

}  // namespace

std::string emergency_words(std::uint16_t error_code) {
  for (const unsigned mask : {0xFFFFU, 0xFFF0U, 0xFF00U, 0xF000U}) {
    const auto code = static_cast<std::uint16_t>(error_code & mask);
    // Only codes up to 0x00FF tell that there is no error.
    if (code == 0 && mask == 0xF000U) {
      break;
    }
    if (const std::string_view words = words_of(code); !words.empty()) {
      return std::string(words);
    }
  }
  return {};
}

std::string error_register_words(std::uint8_t bits) {
  std::string text;
  for (std::size_t bit = 0; bit < std::size(register_bits); ++bit) {
    if ((unsigned{bits} >> bit & 1U) != 0) {
      join_words(text, register_bits[bit]);
    }
  }
  return text.empty() ? "no error" : text;
}

}  // namespace velmora_can_bridge

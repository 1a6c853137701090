#include "velmora_can_bridge/bus/nmt_state.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

namespace velmora_can_bridge {
namespace {

TEST(NmtStateTest, text_names_the_four_states_of_all_values) {
  const std::map<unsigned, std::string> names = {
      {0, "boot-up"}, {4, "stopped"}, {5, "operational"}, {127, "pre-operational"}};
  for (unsigned value = 0; value <= 255; ++value) {
    const auto name = names.find(value);
    EXPECT_EQ(nmt_state_text(NmtState{static_cast<std::uint8_t>(value)}),
              name == names.end() ? "unknown state" : name->second)
        << value;
  }
}

TEST(HeartbeatStateTest, has_no_toggle_bit_of_node_guarding) {
  EXPECT_EQ(heartbeat_state(0x05), NmtState::operational);
  EXPECT_EQ(heartbeat_state(0x85), NmtState::operational);
  EXPECT_EQ(heartbeat_state(0xFF), NmtState::pre_operational);
}

}  // namespace
}  // namespace velmora_can_bridge

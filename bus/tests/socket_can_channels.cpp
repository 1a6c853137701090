#include "can_channel_contract.hpp"
#include "socket_can_interface.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"

namespace velmora_can_bridge {

std::vector<ChannelCase> channels_under_test() {
  return {{"socket_can", test_interface(),
           [] { return std::make_unique<SocketCanChannel>(test_interface()); }}};
}

}  // namespace velmora_can_bridge

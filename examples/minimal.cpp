// The library with a bus of one's own: a node whose objects stand in a map.
#include <cstdio>
#include <map>
#include <utility>

#include "velmora_can_bridge/can_open_node_controller.hpp"

namespace bridge = velmora_can_bridge;
using Bytes = std::vector<std::uint8_t>;

class MapBackend : public bridge::CanOpenBackend {
 public:
  std::map<std::pair<std::uint16_t, std::uint8_t>, Bytes> objects;

  bool sdo_read(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t sub_index,
                Bytes& data) override {
    const auto found = objects.find({index, sub_index});
    if (found == objects.end()) {
      return false;
    }
    data = found->second;
    return true;
  }
  bool sdo_write(std::uint8_t /*node_id*/, std::uint16_t index, std::uint8_t sub_index,
                 const Bytes& data) override {
    objects[{index, sub_index}] = data;
    return true;
  }
  bool send_rpdo(std::uint8_t /*node_id*/, std::uint8_t /*rpdo*/,
                 const std::array<std::uint8_t, 8>& /*data*/, std::uint8_t /*length*/) override {
    return false;  // this node has no RPDO
  }
};

int main() {
  const std::uint8_t node_id = 0x10;
  const bridge::BoardConfig board;
  MapBackend backend;
  backend.objects[{0x1018, 1}] = {0x4D, 0x56, 0x00, 0x00};
  bridge::CanOpenNodeController controller(node_id, backend, board);

  const std::uint16_t indices[] = {0x1018, 0x2001};  // the second is absent
  bridge::OperationConfig read;
  read.kind = "sdo_read";
  read.sub_index = 1;
  for (const std::uint16_t index : indices) {
    read.index = index;
    const auto result = controller.execute_configured_operation(read, "board", {});
    std::printf("%s:", result.message.c_str());
    for (const std::uint8_t byte : result.data) {
      std::printf(" %02X", byte);
    }
    std::printf("\n");
  }
}

// The SDO server against a client that sends anything.
#include <map>
#include <utility>

#include "frame_input.hpp"
#include "fuzz_input.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t node_id = 5;
constexpr std::uint16_t request_cob_id = 0x605;
constexpr std::uint16_t answer_cob_id = 0x585;

void run(FuzzInput input) {
  ObjectDictionary objects;
  objects.add(0x2000, 0, {ObjectAccess::read_write, {1, 2, 3, 4}});
  objects.add(0x2000, 1, {ObjectAccess::read_only, {1}});
  objects.add(0x2001, 0, {ObjectAccess::read_write, std::vector<std::uint8_t>(40), true, 300});
  objects.add(0x2001, 1, {ObjectAccess::read_write, {}, true, 300});
  SdoServer server(
      node_id,
      [&](std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data) {
        return objects.upload(index, sub_index, data);
      },
      [&](std::uint16_t index, std::uint8_t sub_index, const std::vector<std::uint8_t>& data) {
        return objects.download(index, sub_index, data);
      });
  while (!input.empty()) {
    const CanFrame request = take_frame(input, request_cob_id);
    if (const std::optional<CanFrame> answer = server.answer(request)) {
      promise(request.length >= 1 && request.length <= 8,
              "only frames with a command are answered");
      promise(answer->id == answer_cob_id, "answers have the COB-ID of the node");
      promise(answer->length == 8, "answers have 8 bytes");
    }
  }
  promise(objects.find(0x2000, 0)->value.size() == 4, "an object keeps its size");
  promise(objects.find(0x2000, 1)->value == std::vector<std::uint8_t>{1},
          "a read-only object keeps its value");
  promise(objects.find(0x2001, 0)->value.size() <= 300, "an object stays within its limit");
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora_can_bridge::run({data, size});
  return 0;
}

// The SDO server against a client that sends anything: each answer and what the objects hold after
// it are those of a model.
#include <utility>

#include "frame_input.hpp"
#include "fuzz_input.hpp"
#include "sdo_server_model.hpp"
#include "velmora_can_bridge/simulator/sdo_server.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t node_id = 5;
constexpr std::uint16_t request_cob_id = 0x605;
constexpr std::uint16_t answer_cob_id = 0x585;

/// Less than what one object takes, so that the server's limit shows apart from the object's.
constexpr std::size_t most_bytes = 50;

std::vector<std::uint8_t> counted(std::uint8_t from, std::size_t size) {
  std::vector<std::uint8_t> bytes;
  while (bytes.size() < size) {
    bytes.push_back(from++);
  }
  return bytes;
}

std::vector<ModelObject> objects_at_first() {
  return {
      {0x2000, 0, true, true, 4, 4, {1, 2, 3, 4}},
      {0x2000, 1, true, false, 1, 1, {0x21}},
      {0x2000, 2, false, true, 2, 2, {0x31, 0x32}},
      {0x2000, 4, true, true, 1, 1, {0x41}},
      {0x2000, 5, true, true, 3, 3, {0x45, 0x46, 0x47}},
      {0x2000, 6, true, true, 0, 0, {}},
      {0x2001, 0, true, true, 0, 60, counted(0x51, 40)},
      {0x2001, 1, true, true, 0, 60, {}},
      {0x2001, 2, true, true, 0, 12, counted(0x91, 7)},
      {0x2001, 3, true, true, 10, 10, counted(0xA1, 10)},
      {0x0120, 2, true, true, 5, 5, counted(0xB1, 5)},
  };
}

ObjectAccess access_of(const ModelObject& object) {
  if (!object.writable) {
    return ObjectAccess::read_only;
  }
  return object.readable ? ObjectAccess::read_write : ObjectAccess::write_only;
}

ObjectDictionary dictionary_of(const std::vector<ModelObject>& objects) {
  ObjectDictionary dictionary;
  for (const ModelObject& object : objects) {
    dictionary.add(object.index, object.sub_index,
                   {access_of(object), object.bytes, object.least != object.most, object.most});
  }
  return dictionary;
}

void compare(const std::optional<CanFrame>& answer, const SdoServerModel::Answer& expected) {
  promise(answer.has_value() == expected.has_value(), "the server answers when it has to");
  if (answer) {
    promise(answer->id == answer_cob_id, "answers have the COB-ID of the node");
    promise(answer->length == 8, "answers have 8 bytes");
    promise(answer->data == *expected, "an answer has the bytes that the model tells");
  }
}

void compare(const ObjectDictionary& dictionary, const std::vector<ModelObject>& expected) {
  for (const ModelObject& object : expected) {
    promise(dictionary.find(object.index, object.sub_index)->value == object.bytes,
            "an object holds the bytes that acknowledged downloads brought, else what it held");
  }
}

void run(FuzzInput input) {
  SdoServerModel model(objects_at_first(), most_bytes);
  ObjectDictionary objects = dictionary_of(model.objects());
  SdoServer server(
      node_id,
      [&](std::uint16_t index, std::uint8_t sub_index, std::vector<std::uint8_t>& data) {
        return objects.upload(index, sub_index, data);
      },
      [&](std::uint16_t index, std::uint8_t sub_index, const std::vector<std::uint8_t>& data) {
        return objects.download(index, sub_index, data);
      },
      most_bytes);
  while (!input.empty()) {
    const CanFrame request = take_frame(input, request_cob_id);
    compare(server.answer(request), model.answer(request));
    compare(objects, model.objects());
  }
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora_can_bridge::run({data, size});
  return 0;
}

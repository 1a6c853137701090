// What the SDO client tells of transfers with the node of tools/vcan/misbehaviour.
#include "velmora_can_bridge/bus/sdo_client.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "ground/number_text.hpp"
#include "velmora_can_bridge/bus/socket_can_channel.hpp"

namespace velmora_can_bridge {
namespace {

// Each is waited for, so they are short.
constexpr std::chrono::milliseconds quarantine{100};
constexpr std::chrono::milliseconds transfer_timeout{2000};

constexpr std::uint16_t short_object = 0x2000;
constexpr std::uint16_t long_object = 0x2001;

const char* word(BusErrorKind kind) {
  switch (kind) {
    case BusErrorKind::refused:
      return "refused";
    case BusErrorKind::no_answer:
      return "no_answer";
    case BusErrorKind::bad_answer:
      return "bad_answer";
    case BusErrorKind::late_answer:
      return "late_answer";
    case BusErrorKind::short_answer:
      return "short_answer";
    default:
      return "another kind";
  }
}

void print(const BusError& error) {
  std::cout << word(error.kind) << ", abort code " << hex<8>(error.abort_code) << ", outcome "
            << (error.outcome_unknown ? "unknown" : "known") << ": " << error.text << std::endl;
}

void print(const char* transfer, std::uint16_t index, const SdoClient::Failure& failure) {
  std::cout << transfer << " of " << object_text(index, 0) << ": ";
  failure ? print(*failure) : static_cast<void>(std::cout << "done" << std::endl);
}

void upload(SdoClient& client, std::uint16_t index) {
  std::vector<std::uint8_t> data;
  const SdoClient::Failure failure = client.upload(index, 0, data);
  print("upload", index, failure);
  if (!failure) {
    std::cout << "  " << bytes_text(data) << std::endl;
  }
}

void run(const char* interface, std::uint8_t node_id, std::chrono::milliseconds timeout) {
  SocketCanChannel channel(interface);
  SdoTimes times;
  times.frame_timeout = timeout;
  times.transfer_timeout = transfer_timeout;
  times.quarantine = quarantine;
  SdoClient client(channel, node_id, times, [](const BusError& error) {
    std::cout << "observed: ";
    print(error);
  });
  upload(client, short_object);
  upload(client, long_object);
  print("download", short_object, client.download(short_object, 0, {1, 2, 3, 4}));
  print("download", long_object, client.download(long_object, 0, std::vector<std::uint8_t>(20, 7)));
}

}  // namespace
}  // namespace velmora_can_bridge

/// INTERFACE NODE_ID TIMEOUT, in milliseconds.
int main(int count, char** arguments) {
  if (count != 4) {
    std::cerr << "usage: " << arguments[0] << " INTERFACE NODE_ID TIMEOUT\n";
    return EXIT_FAILURE;
  }
  velmora_can_bridge::run(arguments[1],
                          static_cast<std::uint8_t>(std::strtoul(arguments[2], nullptr, 0)),
                          std::chrono::milliseconds(std::strtol(arguments[3], nullptr, 0)));
}

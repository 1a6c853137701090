// The SDO client against a node that answers anything, at any time, any number of times.
#include <chrono>
#include <memory>

#include "frame_input.hpp"
#include "fuzz_input.hpp"
#include "velmora_can_bridge/bus/in_process_bus.hpp"
#include "velmora_can_bridge/bus/sdo_client.hpp"
#include "velmora_can_bridge/urgent_scope.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::uint8_t node_id = 5;
constexpr std::uint16_t answer_cob_id = 0x585;
constexpr std::uint8_t abort_request = 0x80;

/// A transfer with an arbitrary object; the promises that hold whatever the node does.
void run_transfer(FuzzInput& input, SdoClient& client, const CanEndpoint& clock) {
  const auto start = clock.now();
  const unsigned flags = input.byte();
  const bool reads = (flags & 1U) != 0;
  const bool is_urgent = (flags & 2U) != 0;
  const auto scope = is_urgent ? std::make_unique<UrgentScope>() : nullptr;
  const std::uint16_t index = input.word();
  const std::uint8_t sub_index = input.byte();
  std::vector<std::uint8_t> data;
  if (!reads) {
    data = input.bytes(input.byte());
  }
  const SdoClient::Failure failure =
      reads ? client.upload(index, sub_index, data) : client.download(index, sub_index, data);

  const SdoTimes times;
  // As late answers may make it.
  const auto quarantine = std::chrono::milliseconds(is_urgent ? 0 : 5000);
  promise(clock.now() - start <= quarantine + times.transfer_timeout,
          "a transfer ends within quarantine and time-out, an urgent one within its time-out");
  if (failure) {
    promise(!failure->text.empty(), "a failure has a reason");
    promise(failure->kind != BusErrorKind::refused || !failure->outcome_unknown,
            "a refused transfer has a known outcome");
    promise(!reads || is_urgent || !failure->outcome_unknown,
            "only downloads and urgent transfers have unknown outcomes");
  }
}

void run(FuzzInput input) {
  InProcessBus bus(BusTime::simulated);
  std::size_t answered = 0;
  const auto node =
      bus.open({{0x605}}, [&](const CanFrame& request, std::vector<CanFrame>& answers) {
        if ((request.data[0] & abort_request) != 0) {
          return;
        }
        // The answers of one request: a count, then the frames.
        for (unsigned left = input.byte() & 3U; left > 0 && !input.empty(); --left) {
          answers.push_back(take_frame(input, answer_cob_id));
          ++answered;
        }
      });
  bus.set_fault_rule([&](const CanFrame& frame) -> std::vector<CanDelivery> {
    const bool late = frame.id == answer_cob_id && (answered & 7U) == 0;
    return {{frame, std::chrono::milliseconds(late ? 600 : 0)}};
  });
  SdoClient client(bus, node_id, {}, [](const BusError& error) {
    promise(ends_no_call(error.kind), "the observer is told of what ends no transfer");
    promise(!error.text.empty(), "what it is told has a text");
  });
  const auto clock = bus.open({});
  for (int transfers = 0; transfers < 4 && !input.empty(); ++transfers) {
    run_transfer(input, client, *clock);
  }
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  velmora_can_bridge::run({data, size});
  return 0;
}

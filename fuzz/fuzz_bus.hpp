// A bus that notes every call and refuses or breaks at the calls that an input chooses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "fuzz_input.hpp"
#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

enum class BusAnswer { accepted, refused, thrown };

struct BusCall {
  enum class Kind { read, write, send };

  Kind kind = Kind::read;
  std::uint8_t node_id = 0;
  /// Of a read or write.
  std::uint16_t index = 0;
  std::uint8_t sub_index = 0;
  /// What was answered to a read, or written.
  std::vector<std::uint8_t> data;
  /// Of a send.
  std::uint8_t rpdo = 0;
  std::array<std::uint8_t, 8> frame{};
  std::uint8_t length = 0;

  BusAnswer answer = BusAnswer::accepted;
};

struct BusException : std::runtime_error {
  BusException() : std::runtime_error("exception of the bus") {}
};

/// How the calls of one operation are answered. The first has number 0.
struct BusScript {
  /// Bit n refuses call n; later calls are accepted.
  std::uint16_t refused = 0;
  /// The call with this number plus 1 throws; 0 when none does.
  std::uint8_t thrown = 0;
  /// Bytes that reads answer, four of even calls in the low half, those of odd calls in the high.
  std::uint8_t read_lengths = 0x44;
};

/// Reads answer bytes that differ from call to call.
class FuzzBus : public CanOpenBackend {
 public:
  /// Forgets the calls so far, and answers those to come by the script.
  void begin(const BusScript& script) {
    script_ = script;
    calls_.clear();
  }

  /// Those since `begin`, in order.
  const std::vector<BusCall>& calls() const { return calls_; }

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                std::vector<std::uint8_t>& data) override {
    promise(data.empty(), "a read is given no bytes");
    const unsigned shift = calls_.size() % 2 == 0 ? 0 : 4;
    const unsigned length = static_cast<unsigned>(script_.read_lengths >> shift) & 0xFU;
    // A refused read leaves its bytes as well: they must not be used.
    for (unsigned left = length; left > 0; --left) {
      data.push_back(next_byte_);
      next_byte_ = static_cast<std::uint8_t>(next_byte_ + 29);
    }
    BusCall call;
    call.kind = BusCall::Kind::read;
    call.node_id = node_id;
    call.index = index;
    call.sub_index = sub_index;
    call.data = data;
    return answer(call);
  }

  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const std::vector<std::uint8_t>& data) override {
    BusCall call;
    call.kind = BusCall::Kind::write;
    call.node_id = node_id;
    call.index = index;
    call.sub_index = sub_index;
    call.data = data;
    return answer(call);
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    BusCall call;
    call.kind = BusCall::Kind::send;
    call.node_id = node_id;
    call.rpdo = rpdo;
    call.frame = data;
    call.length = length;
    return answer(call);
  }

 private:
  bool answer(BusCall& call) {
    const std::size_t number = calls_.size();
    if (script_.thrown == number + 1) {
      call.answer = BusAnswer::thrown;
    } else if (number < 16 && (unsigned{script_.refused} >> number & 1U) != 0) {
      call.answer = BusAnswer::refused;
    }
    calls_.push_back(call);
    if (call.answer == BusAnswer::thrown) {
      throw BusException();
    }
    return call.answer == BusAnswer::accepted;
  }

  BusScript script_;
  std::vector<BusCall> calls_;
  std::uint8_t next_byte_ = 0x81;
};

}  // namespace velmora_can_bridge

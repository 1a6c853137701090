// A bus that records every call and answers from a script.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

using Bytes = std::vector<std::uint8_t>;

/// Answers each call from the front of its script; when that is empty, reads succeed with no bytes,
/// and writes and sends succeed. Not thread-safe.
class ScriptedBackend : public CanOpenBackend {
 public:
  /// The calls so far, in order, one text each: "read 5 0x2001/3", "write 5 0x2001/3 0A FF",
  /// "rpdo 5 1 len 2: 0A FF 00 00 00 00 00 00".
  std::vector<std::string> calls;

  void answer_read(Bytes data) { answers_.push_back({true, std::move(data)}); }
  void accept() { answers_.push_back({true, {}}); }
  /// Refuses the next call; a refused read leaves `left_over` in its output.
  void refuse(Bytes left_over = {}) { answers_.push_back({false, std::move(left_over)}); }

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                Bytes& data) override {
    // The contract: the caller hands over an empty vector.
    calls.push_back("read " + address(node_id, index, sub_index) + (data.empty() ? "" : " DIRTY"));
    Answer answer = next();
    data = std::move(answer.data);
    return answer.ok;
  }

  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const Bytes& data) override {
    calls.push_back("write " + address(node_id, index, sub_index) + bytes_text(data));
    return next().ok;
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    calls.push_back("rpdo " + std::to_string(node_id) + " " + std::to_string(rpdo) + " len " +
                    std::to_string(length) + ":" + bytes_text(data));
    return next().ok;
  }

 private:
  struct Answer {
    bool ok;
    Bytes data;
  };

  Answer next() {
    if (answers_.empty()) {
      return {true, {}};
    }
    Answer answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
  }

  static std::string hexadecimal(unsigned value, int digits) {
    std::ostringstream text;
    text << std::uppercase << std::hex;
    text.width(digits);
    text.fill('0');
    text << value;
    return text.str();
  }

  static std::string address(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index) {
    return std::to_string(node_id) + " 0x" + hexadecimal(index, 4) + "/" +
           std::to_string(sub_index);
  }

  template <typename Container>
  static std::string bytes_text(const Container& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
      text += " " + hexadecimal(byte, 2);
    }
    return text;
  }

  std::deque<Answer> answers_;
};

}  // namespace velmora_can_bridge

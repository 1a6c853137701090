// A bus that records every call and answers from a script.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velmora_can_bridge/can_open_backend.hpp"

namespace velmora_can_bridge {

using Bytes = std::vector<std::uint8_t>;

/// What a call throws that was scripted to throw.
struct BusException : std::runtime_error {
  BusException() : std::runtime_error("exception of the bus") {}
};

/// Answers each call from the front of its script; when that is empty, reads answer from `objects`,
/// and writes and sends succeed and change nothing. Not thread-safe, but a call may come from
/// another thread while `during_call` holds one.
class ScriptedBackend : public CanOpenBackend {
 public:
  /// The calls so far, in order, one text each: "read 5 0x2001/3", "write 5 0x2001/3 0A FF",
  /// "rpdo 5 1 len 2: 0A FF 00 00 00 00 00 00".
  std::vector<std::string> calls;

  /// What reads answer without a script, by index and sub-index. A read of an object that is not
  /// here succeeds with no bytes.
  std::map<std::pair<std::uint16_t, std::uint8_t>, Bytes> objects;

  /// When set: runs during every call, with the call's text, before the call answers.
  std::function<void(const std::string& call)> during_call;

  void answer_read(Bytes data) { script_.push_back({Outcome::accepted, std::move(data)}); }
  void accept() { script_.push_back({Outcome::accepted, {}}); }
  /// Refuses the next call; a refused read leaves `left_over` in its output.
  void refuse(Bytes left_over = {}) { script_.push_back({Outcome::refused, std::move(left_over)}); }
  /// Throws a BusException from the next call.
  void raise_exception() { script_.push_back({Outcome::thrown, {}}); }
  /// Answers the next `count` calls as without a script.
  void serve(std::size_t count) { script_.insert(script_.end(), count, {Outcome::served, {}}); }

  /// Whether the next call is scripted to throw.
  bool throws_next() const {
    return !script_.empty() && script_.front().outcome == Outcome::thrown;
  }
  /// Whether the next call is scripted to be refused.
  bool refuses_next() const {
    return !script_.empty() && script_.front().outcome == Outcome::refused;
  }

  /// How `calls` writes the send of a frame.
  static std::string rpdo_text(std::uint8_t node_id, std::uint8_t rpdo,
                               const std::array<std::uint8_t, 8>& data, std::uint8_t length) {
    return "rpdo " + std::to_string(node_id) + " " + std::to_string(rpdo) + " len " +
           std::to_string(length) + ":" + bytes_text(data);
  }

  bool sdo_read(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                Bytes& data) override {
    // The contract: the caller hands over an empty vector.
    calls.push_back("read " + address(node_id, index, sub_index) + (data.empty() ? "" : " DIRTY"));
    Answer answer = next();
    if (answer.outcome == Outcome::served) {
      const auto found = objects.find({index, sub_index});
      data = found == objects.end() ? Bytes() : found->second;
    } else {
      data = std::move(answer.data);
    }
    return answer.outcome != Outcome::refused;
  }

  bool sdo_write(std::uint8_t node_id, std::uint16_t index, std::uint8_t sub_index,
                 const Bytes& data) override {
    calls.push_back("write " + address(node_id, index, sub_index) + bytes_text(data));
    return next().outcome != Outcome::refused;
  }

  bool send_rpdo(std::uint8_t node_id, std::uint8_t rpdo, const std::array<std::uint8_t, 8>& data,
                 std::uint8_t length) override {
    calls.push_back(rpdo_text(node_id, rpdo, data, length));
    return next().outcome != Outcome::refused;
  }

 private:
  enum class Outcome { served, accepted, refused, thrown };

  struct Answer {
    Outcome outcome;
    Bytes data;
  };

  /// The answer to the call noted last.
  Answer next() {
    Answer answer = take();
    if (during_call) {
      // A copy: other calls may be noted meanwhile.
      during_call(std::string(calls.back()));
    }
    if (answer.outcome == Outcome::thrown) {
      throw BusException();
    }
    return answer;
  }

  Answer take() {
    if (script_.empty()) {
      return {Outcome::served, {}};
    }
    Answer answer = std::move(script_.front());
    script_.pop_front();
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

  std::deque<Answer> script_;
};

}  // namespace velmora_can_bridge

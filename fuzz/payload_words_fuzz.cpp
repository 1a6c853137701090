// Words that people type as payload: any text, and values that must come back as they were. Raw
// words are held against a model, those of a layout against the layout.
#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "fuzz_input.hpp"
#include "velmora_can_bridge/values/payload_words.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

// --- the model: what a word stands for, written down once more ---

std::optional<unsigned> digit_value(char digit, unsigned base) {
  static const std::string digits = "0123456789abcdef";
  const char lower = digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
  const std::size_t value = digits.find(lower);
  return value < base ? std::optional<unsigned>(static_cast<unsigned>(value)) : std::nullopt;
}

/// The number that the digits write; more than 32 bits have is one number. No value for other
/// texts.
std::optional<std::uint64_t> magnitude(const std::string& digits, unsigned base) {
  constexpr std::uint64_t too_large = std::uint64_t{1} << 40U;
  std::uint64_t sum = 0;
  for (const char digit : digits) {
    const std::optional<unsigned> value = digit_value(digit, base);
    if (!value) {
      return std::nullopt;
    }
    sum = std::min(sum * base + *value, too_large);
  }
  return digits.empty() ? std::nullopt : std::make_optional(sum);
}

struct IntegerType {
  std::size_t size;
  bool is_signed;
};

const std::map<std::string, IntegerType>& integer_types() {
  static const std::map<std::string, IntegerType> types = {{"u8", {1, false}},  {"s8", {1, true}},
                                                           {"u16", {2, false}}, {"s16", {2, true}},
                                                           {"u32", {4, false}}, {"s32", {4, true}}};
  return types;
}

Bytes low_bytes(std::uint64_t value, std::size_t count) {
  Bytes bytes;
  for (; bytes.size() < count; value /= 256) {
    bytes.push_back(static_cast<std::uint8_t>(value % 256));
  }
  return bytes;
}

std::optional<Bytes> typed_value(const std::string& type_name, std::string text) {
  const auto type = integer_types().find(type_name);
  if (type == integer_types().end()) {
    return std::nullopt;
  }
  const bool hexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
  const bool negative = text.rfind('-', 0) == 0;
  text.erase(0, hexadecimal ? 2 : negative ? 1 : 0);
  const std::optional<std::uint64_t> number = magnitude(text, hexadecimal ? 16 : 10);
  const std::uint64_t values = std::uint64_t{1} << (8 * type->second.size);
  const std::uint64_t lowest = type->second.is_signed ? values / 2 : 0;
  if (!number || (negative ? *number > lowest : *number >= values - lowest)) {
    return std::nullopt;
  }
  return low_bytes(negative ? values - *number : *number, type->second.size);
}

std::optional<Bytes> hex_bytes(const std::string& word) {
  Bytes bytes;
  for (std::size_t position = 0; position + 1 < word.size(); position += 2) {
    const std::optional<std::uint64_t> byte = magnitude(word.substr(position, 2), 16);
    if (!byte) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(*byte));
  }
  return word.empty() || word.size() % 2 != 0 ? std::nullopt : std::make_optional(bytes);
}

std::optional<Bytes> meaning(const std::string& word) {
  const std::size_t colon = word.find(':');
  return colon == std::string::npos ? hex_bytes(word)
                                    : typed_value(word.substr(0, colon), word.substr(colon + 1));
}

// --- the promises ---

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words(1);
  for (const char character : text) {
    if (character == '\n') {
      words.emplace_back();
    } else {
      words.back() += character;
    }
  }
  return words;
}

void check_text(const std::vector<std::string>& words) {
  Bytes expected;
  const auto parsed = raw_payload_from_words(words);
  for (const std::string& word : words) {
    const std::optional<Bytes> bytes = meaning(word);
    if (!bytes) {
      const std::string start = "payload word \"" + word + "\": ";
      promise(!parsed, "a word that stands for no bytes is refused");
      promise(parsed.error().rfind(start, 0) == 0, "the reason names the first culprit");
      promise(parsed.error().size() > start.size(), "the reason says more than the word");
      return;
    }
    expected.insert(expected.end(), bytes->begin(), bytes->end());
  }
  promise(parsed.has_value(), "words that stand for bytes are taken");
  promise(*parsed == expected, "words stand for their bytes, joined in order");
}

/// Writes each of the bytes as a word of its own, and a typed value of them, and reads them back.
void check_round_trip(const Bytes& bytes) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::vector<std::string> words;
  for (const std::uint8_t byte : bytes) {
    words.push_back({digits[byte / 16], digits[byte % 16]});
  }
  promise(*raw_payload_from_words(words) == bytes, "hexadecimal bytes come back");
  if (bytes.size() < 4) {
    return;
  }
  std::uint32_t value = 0;
  for (std::size_t position = 4; position > 0; --position) {
    value = value * 256 + bytes[position - 1];
  }
  const std::string text = std::to_string(static_cast<std::int32_t>(value));
  promise(*raw_payload_from_words({"s32:" + text}) == Bytes(bytes.begin(), bytes.begin() + 4),
          "a typed value comes back");
}

// --- words by a layout ---

NodeConfig described_node() {
  NodeConfig node;
  node.node_id = 1;
  node.board.pdos = {{1,
                      "RPDO",
                      0,
                      {{0x2000, 1, 8, "led_red"},
                       {0x2000, 2, 8, "led_mode"},
                       {0x2000, 3, 24, "odd"},
                       {0x2000, 4, 16, "speed"}}}};
  ValueDescription mode;
  mode.values = {{"off", Count()}, {"slow_blink", Count::of(-3)}};
  node.values[{0x2000, 2}] = mode;
  ValueDescription speed;
  speed.type = ValueType::s16;
  speed.unit = "m/s";
  speed.scale = 0.001;
  speed.minimum = Count::of(-5000);
  node.values[{0x2000, 4}] = speed;
  ValueDescription voltage;
  voltage.type = ValueType::float32;
  node.values[{0x2001, 0}] = voltage;
  ValueDescription name;
  name.type = ValueType::text;
  node.values[{0x2002, 0}] = name;
  return node;
}

std::vector<OperationConfig> described_operations() {
  OperationConfig fields;
  fields.kind = "pdo_write";
  fields.pdo_number = 1;
  fields.fields = {"led_red", "led_mode", "odd", "speed"};
  OperationConfig patch = fields;
  patch.kind = "pdo_patch";
  OperationConfig object;
  object.kind = "sdo_write";
  object.index = 0x2001;
  OperationConfig by_sub_index = object;
  by_sub_index.index = 0x2000;
  by_sub_index.subindex_in_payload = 1;
  return {fields, patch, object, by_sub_index};
}

void check_layouts(const std::vector<std::string>& words) {
  static const NodeConfig node = described_node();
  static const std::vector<OperationConfig> operations = described_operations();
  for (const OperationConfig& operation : operations) {
    const PayloadUse use{node, "", operation};
    const auto payload = payload_from_words(use, words);
    if (payload) {
      promise(!payload_refusal(*payload_layout(use, *payload), *payload),
              "words that are taken make a payload of the layout");
    } else {
      promise(payload.error().find("; expected ") != std::string::npos,
              "a refusal says what is expected");
    }
  }
  for (std::uint16_t index = 0x2001; index <= 0x2003; ++index) {
    promise(object_from_words(&node, index, 0, words).has_value() ||
                !object_from_words(&node, index, 0, words).error().empty(),
            "an object has a value or a reason");
  }
}

}  // namespace
}  // namespace velmora_can_bridge

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> words = velmora_can_bridge::split({data, data + size});
  velmora_can_bridge::check_text(words);
  velmora_can_bridge::check_layouts(words);
  velmora_can_bridge::check_round_trip({data, data + size});
  return 0;
}

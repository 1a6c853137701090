#include "velmora_can_bridge/traffic/value_text.hpp"

#include <algorithm>

#include "ground/little_endian.hpp"
#include "ground/number_text.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned bits_per_byte = 8;
constexpr unsigned word_bits = 64;

bool is_plain_text(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(),
                     [](std::uint8_t byte) { return byte >= 0x20 && byte < 0x7F; });
}

}  // namespace

std::int64_t with_sign(std::uint64_t bits, unsigned bit_length) {
  const bool is_negative = (bits >> (bit_length - 1) & 1U) != 0;
  const bool is_whole = bit_length >= word_bits;
  return static_cast<std::int64_t>(is_negative && !is_whole ? bits | ~std::uint64_t{0} << bit_length
                                                            : bits);
}

std::string number_text(std::uint64_t bits, unsigned bit_length, bool is_signed) {
  return is_signed ? std::to_string(with_sign(bits, bit_length)) : std::to_string(bits);
}

bool is_number_size(std::size_t size) { return size == 1 || size == 2 || size == 4 || size == 8; }

std::string value_text(const std::vector<std::uint8_t>& bytes, bool is_signed) {
  if (bytes.empty()) {
    return "no bytes";
  }
  const auto bit_length = static_cast<unsigned>(bytes.size() * bits_per_byte);
  if (is_number_size(bytes.size())) {
    return hex_bytes(bytes) + " (" +
           number_text(little_endian_number(bytes), bit_length, is_signed) + ")";
  }
  return hex_bytes(bytes) +
         (is_plain_text(bytes) ? " (\"" + std::string(bytes.begin(), bytes.end()) + "\")" : "");
}

}  // namespace velmora_can_bridge

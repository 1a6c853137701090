// What the fuzz targets share: reading an input bit by bit, and stopping at a broken promise.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace velmora_can_bridge {

/// The bytes of one input, taken from the front; 0 when there are none left.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return size_ == 0; }

  std::uint8_t byte() {
    if (empty()) {
      return 0;
    }
    --size_;
    return *data_++;
  }

  std::uint16_t word() { return static_cast<std::uint16_t>(byte() | (byte() << 8U)); }

  /// One element of the table; the first when nothing is left.
  template <typename Table>
  const auto& pick(const Table& table) {
    return *(std::begin(table) + byte() % std::size(table));
  }

  /// Without room to spare, so that the sanitizer sees a read behind the last.
  std::vector<std::uint8_t> bytes(std::size_t count) {
    const std::size_t taken = std::min(count, size_);
    const std::uint8_t* const begin = data_;
    data_ += taken;
    size_ -= taken;
    return {begin, data_};
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

/// Ends the run with the input kept when a promise does not hold.
inline void promise(bool holds, const char* what) {
  if (!holds) {
    static_cast<void>(std::fprintf(stderr, "broken promise: %s\n", what));
    std::abort();
  }
}

}  // namespace velmora_can_bridge

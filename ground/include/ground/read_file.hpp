// Files that people name.
#pragma once

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <ios>
#include <string>
#include <system_error>

#include "velmora_can_bridge/expected.hpp"

namespace velmora_can_bridge {

/// What the file holds, or "cannot be read: REASON". Of a file of more than `limit` bytes, which
/// may have no end, one byte more than that.
inline Expected<std::string> read_file(const std::string& path, std::size_t limit) {
  const auto failed = [] {
    return Unexpected{"cannot be read: " + std::generic_category().message(errno)};
  };
  // The library's streams tell the reason of a failure in errno alone.
  errno = 0;
  std::ifstream input(path, std::ios::binary);
  if (!input) {
    return failed();
  }
  std::string text(limit + 1, '\0');
  input.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (input.bad()) {
    return failed();
  }
  text.resize(static_cast<std::size_t>(input.gcount()));
  return text;
}

}  // namespace velmora_can_bridge

// Where random tests begin.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace velmora_can_bridge {

/// The seed of the command line, else a fresh one in the range that the command line takes.
inline std::uint32_t chosen_seed() {
  const auto given = static_cast<std::uint32_t>(GTEST_FLAG_GET(random_seed));
  return given != 0 ? given : 1 + std::random_device{}() % 99999;
}

}  // namespace velmora_can_bridge

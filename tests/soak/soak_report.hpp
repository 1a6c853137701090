// What the soak has seen, and what was wrong.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "soak_settings.hpp"
#include "velmora_can_bridge/operation_kinds.hpp"

namespace velmora_can_bridge::soak {

/// What disturbs a node, or all of them.
enum class Trouble : std::uint8_t {
  lost_frames,
  late_frames,
  doubled_frames,
  mixed_faults,
  silence,
  restart,
  restart_by_bridge,
  stop,
  babble,
  network_down,
};
inline constexpr std::size_t troubles = 10;

/// How an operation ended.
enum class Outcome : std::uint8_t { ok, failed_in_trouble, failed };

/// What the process holds.
struct Resources {
  static Resources now();

  std::size_t heap_bytes = 0;
  std::size_t resident_bytes = 0;
  std::size_t descriptors = 0;
  std::size_t threads = 0;
};

/// The longest of many waits. Any thread.
class Longest {
 public:
  void note(std::chrono::nanoseconds time);
  double seconds() const;

 private:
  std::atomic<std::int64_t> nanoseconds_{0};
};

/// Any thread.
class Report {
 public:
  /// Something that must not be. The first ones are kept.
  void problem(const std::string& text);
  bool is_clean() const { return problems_ == 0; }

  void count(std::string_view kind, Outcome outcome);
  void count(Trouble trouble) { ++troubles_.at(static_cast<std::size_t>(trouble)); }

  /// The table, without what was wrong.
  void print(std::ostream& out) const;
  void print_problems(std::ostream& out) const;

  Longest longest_operation;
  Longest longest_urgent;
  Longest longest_recovery;
  /// Of all nodes.
  Longest longest_settling;
  /// Transfers that had to wait for others, and those of them that later ones have overtaken.
  std::atomic<std::uint64_t> waited{0};
  std::atomic<std::uint64_t> overtaken{0};
  std::atomic<std::uint32_t> most_overtaken{0};
  std::atomic<std::uint64_t> frames_checked{0};
  std::atomic<std::uint64_t> values_checked{0};
  std::atomic<std::uint64_t> settled{0};
  std::atomic<std::uint64_t> stalls{0};
  std::atomic<std::uint64_t> events{0};

 private:
  using PerOutcome = std::array<std::atomic<std::uint64_t>, 3>;

  std::array<PerOutcome, std::size(operation_kinds)> operations_{};
  std::array<std::atomic<std::uint64_t>, soak::troubles> troubles_{};
  std::atomic<std::uint64_t> problems_{0};
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

}  // namespace velmora_can_bridge::soak

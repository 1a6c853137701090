#include "soak_report.hpp"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>

namespace velmora_can_bridge::soak {
namespace {

constexpr std::size_t kept_problems = 12;

constexpr const char* trouble_names[troubles] = {
    "frames lost", "frames late",       "frames doubled",        "frames lost, late, doubled",
    "silence",     "restart by itself", "restart by the bridge", "stopped by another master",
    "babble",      "network down"};

std::size_t entries(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

}  // namespace

Resources Resources::now() {
  Resources resources;
  const struct mallinfo2 heap = ::mallinfo2();
  resources.heap_bytes = heap.uordblks + heap.hblkhd;
  std::size_t pages = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  resources.resident_bytes = resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  // The iterator itself has one open.
  resources.descriptors = entries("/proc/self/fd") - 1;
  resources.threads = entries("/proc/self/task");
  return resources;
}

void Longest::note(std::chrono::nanoseconds time) {
  std::int64_t known = nanoseconds_;
  while (time.count() > known && !nanoseconds_.compare_exchange_weak(known, time.count())) {
  }
}

double Longest::seconds() const {
  return std::chrono::duration<double>(std::chrono::nanoseconds(nanoseconds_)).count();
}

void Report::problem(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++problems_;
  if (texts_.size() < kept_problems) {
    texts_.push_back(text);
  }
}

void Report::count(std::string_view kind, Outcome outcome) {
  const auto* const row =
      std::find_if(std::begin(operation_kinds), std::end(operation_kinds),
                   [&](const OperationKind& each) { return each.kind == kind; });
  if (row != std::end(operation_kinds)) {
    const auto position = static_cast<std::size_t>(std::distance(std::begin(operation_kinds), row));
    ++operations_.at(position).at(static_cast<std::size_t>(outcome));
  }
}

void Report::print(std::ostream& out) const {
  out << std::left << std::setw(28) << "operations" << std::right << std::setw(10) << "ok"
      << std::setw(19) << "failed in trouble" << std::setw(10) << "failed" << '\n';
  for (std::size_t kind = 0; kind < operations_.size(); ++kind) {
    const PerOutcome& counts = operations_.at(kind);
    out << "  " << std::left << std::setw(26) << operation_kinds[kind].kind << std::right
        << std::setw(10) << counts[0] << std::setw(19) << counts[1] << std::setw(10) << counts[2]
        << '\n';
    if (counts[0] == 0) {
      out << "  (none was ok)\n";
    }
  }
  out << "troubles\n";
  for (std::size_t trouble = 0; trouble < troubles_.size(); ++trouble) {
    out << "  " << std::left << std::setw(26) << trouble_names[trouble] << std::right
        << std::setw(10) << troubles_.at(trouble) << '\n';
  }
  out << std::fixed << std::setprecision(3);
  out << "checks: " << values_checked << " values, " << frames_checked
      << " RPDO frames; nodes made sure of " << settled << " times; " << events
      << " events told; machine stalls " << stalls << '\n'
      << "longest: operation " << longest_operation.seconds() << " s, quick stop "
      << longest_urgent.seconds() << " s, recovery of a node " << longest_recovery.seconds()
      << " s, of all nodes " << longest_settling.seconds() << " s\n"
      << "turns: " << waited << " transfers waited, " << overtaken << " were overtaken, by "
      << most_overtaken << " at most\n";
}

void Report::print_problems(std::ostream& out) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const std::string& text : texts_) {
    out << "WRONG: " << text << '\n';
  }
  if (problems_ > texts_.size()) {
    out << "WRONG: " << problems_ - texts_.size() << " more\n";
  }
}

}  // namespace velmora_can_bridge::soak

// One line of a script of faults.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velmora_can_bridge/simulator/fault_script.hpp"

namespace velmora_can_bridge {

/// A word and where it begins, counted in bytes from 1.
struct FaultWord {
  std::string_view text;
  std::size_t column = 0;
};

/// The words of a line, whose text outlives them. A colon behind a word is one of its own, "#" at
/// the beginning of a word begins a comment.
std::vector<FaultWord> fault_words(std::string_view line);

/// Reads one line. What is wrong with a value is reported, and the line is read on; behind a word
/// that is out of place it is not.
class FaultLine {
 public:
  using Nodes = std::vector<const SimulatedBusNode*>;

  /// All of them outlive this.
  FaultLine(std::string_view line, std::size_t number, const Nodes& nodes,
            std::vector<FaultScriptProblem>& problems);

  /// No value for a line without words, and for one with mistakes, which have been reported.
  std::optional<Fault> read();

 private:
  /// A row of the table of faults: the word with which one begins.
  struct Row {
    std::string_view word;
    bool (FaultLine::*read)();
  };

  // These read a part of the line. False: the rest cannot be read.
  bool read_node();
  bool read_beginning();
  bool read_at();
  bool read_after();
  bool read_fault();
  bool read_no();
  bool read_answer();
  bool read_abort();
  bool read_wrong();
  bool read_hold();
  bool read_drive();
  bool read_restart();
  bool read_strike(FaultKind kind);
  bool read_lasting_strike();
  bool read_lasting();
  bool read_scope(TransferScope& scope);
  bool read_sort(TransferSort& sort);
  bool read_object(ObjectAddress& object);
  bool read_end();
  bool read_time(std::chrono::milliseconds& time, std::chrono::milliseconds least);
  bool read_number(const std::string& expected, std::uint64_t low, std::uint64_t high,
                   std::uint64_t& number);
  bool read_drive_name();

  bool is_next(std::string_view text) const;
  bool is_next_count() const;
  bool take(std::string_view text);
  bool expect(std::string_view text);
  bool report_word(const std::vector<std::string_view>& words);
  bool report(const std::string& expected);
  bool report(std::size_t column, std::string message);
  std::size_t next_column() const;
  std::string found_text() const;
  void check_drive(std::size_t column);
  const SimulatedBusNode* find_node(std::uint64_t node_id) const;

  const std::vector<FaultWord> words_;
  const std::size_t number_;
  const Nodes* const nodes_;
  std::vector<FaultScriptProblem>* const problems_;
  std::size_t next_ = 0;
  // Null where the line does not name one that there is.
  const SimulatedBusNode* node_ = nullptr;
  Fault fault_;
};

}  // namespace velmora_can_bridge

#include "fault_line.hpp"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "ground/nearest_name.hpp"
#include "ground/node_text.hpp"
#include "ground/number_text.hpp"
#include "ground/parse_number.hpp"
#include "ground/parse_time.hpp"
#include "ground/quoted_text.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t most_transfers = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t most_bytes = std::uint64_t{1} << 20U;

constexpr std::string_view blanks = " \t\r";

struct SortName {
  std::string_view one;
  std::string_view several;
  TransferSort sort;
};

constexpr SortName sort_names[] = {{"transfer", "transfers", TransferSort::any},
                                   {"read", "reads", TransferSort::read},
                                   {"write", "writes", TransferSort::write}};

/// As `parse_number`, but nothing that looks octal, and nothing below 0.
std::optional<std::uint64_t> plain_number(std::string_view text) {
  const std::optional<TypedNumber> number = looks_octal(text) ? std::nullopt : parse_number(text);
  return number && !number->is_negative && !number->is_too_large
             ? std::make_optional(number->magnitude)
             : std::nullopt;
}

/// "0x6041/0".
std::optional<ObjectAddress> object_in(std::string_view text) {
  const std::size_t slash = text.find('/');
  const auto index = plain_number(text.substr(0, slash));
  const auto sub_index =
      slash == std::string_view::npos ? std::nullopt : plain_number(text.substr(slash + 1));
  if (!index || !sub_index || *index > 0xFFFF || *sub_index > 0xFF) {
    return std::nullopt;
  }
  return ObjectAddress{static_cast<std::uint16_t>(*index), static_cast<std::uint8_t>(*sub_index)};
}

template <typename Text>
std::vector<std::string> all_quoted(const std::vector<Text>& texts) {
  std::vector<std::string> all;
  all.reserve(texts.size());
  for (const std::string_view text : texts) {
    all.push_back(quoted(text));
  }
  return all;
}

/// ", did you mean "at"?", where it may be one of `words`.
std::string hint(std::string_view found, const std::vector<std::string_view>& words) {
  const std::string_view nearest = nearest_name(found, words);
  return nearest.empty() ? "" : ", did you mean \"" + std::string(nearest) + "\"?";
}

}  // namespace

std::vector<FaultWord> fault_words(std::string_view line) {
  std::vector<FaultWord> words;
  std::size_t begin = 0;
  while (begin < line.size() && line[begin] != '#') {
    if (blanks.find(line[begin]) != std::string_view::npos) {
      ++begin;
      continue;
    }
    const std::size_t end = std::min(line.find_first_of(blanks, begin), line.size());
    const bool has_colon = line[end - 1] == ':' && end - begin > 1;
    words.push_back({line.substr(begin, end - begin - (has_colon ? 1 : 0)), begin + 1});
    if (has_colon) {
      words.push_back({line.substr(end - 1, 1), end});
    }
    begin = end;
  }
  return words;
}

FaultLine::FaultLine(std::string_view line, std::size_t number, const Nodes& nodes,
                     std::vector<FaultScriptProblem>& problems)
    : words_(fault_words(line)), number_(number), nodes_(&nodes), problems_(&problems) {
  if (!words_.empty()) {
    const FaultWord& last = words_.back();
    const std::size_t begin = words_.front().column - 1;
    fault_.text = line.substr(begin, last.column - 1 + last.text.size() - begin);
  }
  fault_.line = number;
}

std::optional<Fault> FaultLine::read() {
  const std::size_t before = problems_->size();
  const bool is_whole = !words_.empty() && read_node() && read_beginning() && expect(":") &&
                        read_fault() && read_end();
  return is_whole && problems_->size() == before ? std::make_optional(std::move(fault_))
                                                 : std::nullopt;
}

bool FaultLine::read_node() {
  if (!expect("node")) {
    return false;
  }
  const std::size_t column = next_column();
  const std::size_t before = problems_->size();
  std::uint64_t node_id = 0;
  if (!read_number("a node id, 1 to 127", 1, 127, node_id)) {
    return false;
  }
  fault_.node_id = static_cast<std::uint8_t>(node_id);
  node_ = find_node(node_id);
  if (node_ == nullptr && problems_->size() == before) {
    std::vector<std::string> there_are;
    there_are.reserve(nodes_->size());
    for (const SimulatedBusNode* const node : *nodes_) {
      there_are.push_back(hex<2>(node->node_id()));
    }
    report(column, "no " + node_text(fault_.node_id) + " is simulated" +
                       (there_are.empty() ? "" : ", expected " + enumeration(there_are)));
  }
  return true;
}

bool FaultLine::read_beginning() {
  if (take("at")) {
    return read_at();
  }
  if (take("after")) {
    return read_after();
  }
  return report_word({"at", "after"});
}

bool FaultLine::read_at() { return read_time(fault_.at, milliseconds(0)); }

bool FaultLine::read_after() {
  std::uint64_t count = 0;
  if (!read_number("a number of transfers, 1 or more", 1, most_transfers, count)) {
    return false;
  }
  fault_.after_transfers = static_cast<std::uint32_t>(count);
  ObjectAddress object;
  if (!read_sort(fault_.counted.sort) || !expect("of") || !read_object(object)) {
    return false;
  }
  fault_.counted.object = object;
  fault_.struck = fault_.counted;
  return true;
}

bool FaultLine::read_fault() {
  static constexpr Row rows[] = {
      {"no", &FaultLine::read_no},           {"answer", &FaultLine::read_answer},
      {"abort", &FaultLine::read_abort},     {"wrong", &FaultLine::read_wrong},
      {"hold", &FaultLine::read_hold},       {"drive", &FaultLine::read_drive},
      {"restart", &FaultLine::read_restart},
  };
  std::vector<std::string_view> words;
  for (const Row& row : rows) {
    if (take(row.word)) {
      return (this->*row.read)();
    }
    words.push_back(row.word);
  }
  const std::string_view found = next_ < words_.size() ? words_[next_].text : std::string_view();
  return report(next_column(),
                "expected a fault (no answer, answer late, answer with fewer bytes, abort, wrong "
                "toggle, hold, drive fault, restart or no heartbeat), found " +
                    found_text() + hint(found, words));
}

bool FaultLine::read_no() {
  if (take("answer")) {
    return read_strike(FaultKind::no_answer);
  }
  if (take("heartbeat")) {
    fault_.kind = FaultKind::no_heartbeat;
    return read_lasting();
  }
  return report_word({"answer", "heartbeat"});
}

/// "answer 300 ms late", "answer with 1 byte".
bool FaultLine::read_answer() {
  if (!take("with")) {
    return read_time(fault_.lateness, milliseconds(1)) && expect("late") &&
           read_strike(FaultKind::late_answer);
  }
  std::uint64_t bytes = 0;
  const std::size_t column = next_column();
  if (!read_number("a number of bytes, 0 to 1048576", 0, most_bytes, bytes)) {
    return false;
  }
  fault_.bytes = bytes;
  if (!take("byte") && !expect("bytes")) {
    return false;
  }
  if (!read_strike(FaultKind::short_answer)) {
    return false;
  }
  if (fault_.struck.sort == TransferSort::write) {
    report(column,
           "a write is answered without bytes, name the reads that are struck, as in \"in "
           "reads of 0x6041/0\"");
  }
  return true;
}

bool FaultLine::read_abort() {
  std::uint64_t code = 0;
  if (!read_number("an abort code such as 0x08000000", 1, 0xFFFFFFFF, code)) {
    return false;
  }
  fault_.code = static_cast<std::uint32_t>(code);
  return read_strike(FaultKind::abort);
}

bool FaultLine::read_wrong() { return expect("toggle") && read_strike(FaultKind::wrong_toggle); }

bool FaultLine::read_hold() {
  fault_.kind = FaultKind::held_value;
  return read_object(fault_.object) && read_lasting();
}

/// "drive fault 0x2310 of left_wheel": a name may have blanks.
bool FaultLine::read_drive() {
  const std::size_t column = words_[next_ - 1].column;
  fault_.kind = FaultKind::drive_fault;
  std::uint64_t code = 0;
  if (!expect("fault") || !read_number("an error code such as 0x2310", 1, 0xFFFF, code)) {
    return false;
  }
  fault_.code = static_cast<std::uint32_t>(code);
  const bool is_named = take("of");
  const std::size_t name_column = is_named ? next_column() : column;
  if (is_named && !read_drive_name()) {
    return false;
  }
  check_drive(name_column);
  return true;
}

bool FaultLine::read_restart() {
  fault_.kind = FaultKind::restart;
  return true;
}

/// The rest of a fault that strikes transfers.
bool FaultLine::read_strike(FaultKind kind) {
  fault_.kind = kind;
  if (take("in") && !read_scope(fault_.struck)) {
    return false;
  }
  return read_lasting_strike();
}

/// One transfer where the line does not say how long.
bool FaultLine::read_lasting_strike() {
  const bool is_lasting = is_next("for") || is_next("from");
  if (!is_lasting) {
    fault_.transfers = 1;
    return true;
  }
  if (!is_next_count()) {
    return read_lasting();
  }
  std::uint64_t count = 0;
  take("for");
  if (!read_number("a number of transfers, 1 or more", 1, most_transfers, count)) {
    return false;
  }
  fault_.transfers = static_cast<std::uint32_t>(count);
  return take("transfer") || expect("transfers");
}

/// From then on where the line does not say how long.
bool FaultLine::read_lasting() {
  if (take("from")) {
    return expect("then") && expect("on");
  }
  if (!take("for")) {
    return true;
  }
  milliseconds duration(0);
  if (!read_time(duration, milliseconds(1))) {
    return false;
  }
  fault_.duration = duration;
  return true;
}

/// "reads of 0x6041/0", "writes".
bool FaultLine::read_scope(TransferScope& scope) {
  scope.object.reset();
  if (!read_sort(scope.sort)) {
    return false;
  }
  ObjectAddress object;
  if (take("of")) {
    if (!read_object(object)) {
      return false;
    }
    scope.object = object;
  }
  return true;
}

bool FaultLine::read_sort(TransferSort& sort) {
  for (const SortName& name : sort_names) {
    if (take(name.one) || take(name.several)) {
      sort = name.sort;
      return true;
    }
  }
  return report_word({"transfers", "reads", "writes"});
}

bool FaultLine::read_object(ObjectAddress& object) {
  const std::size_t column = next_column();
  const auto read = next_ < words_.size() ? object_in(words_[next_].text) : std::nullopt;
  if (!read) {
    return report("an object such as 0x6041/0");
  }
  ++next_;
  object = *read;
  const bool is_absent =
      node_ != nullptr && !node_->device().object_value(object.index, object.sub_index);
  if (is_absent) {
    report(column, node_text(fault_.node_id) + " has no object " +
                       object_text(object.index, object.sub_index));
  }
  return true;
}

bool FaultLine::read_end() { return next_ == words_.size() || report("the end of the line"); }

/// "2.5 s", "2.5s".
bool FaultLine::read_time(milliseconds& time, milliseconds least) {
  const std::string expected = "a time such as 2.5 s or 200 ms, up to 86400 s";
  if (next_ == words_.size()) {
    return report(expected);
  }
  const std::size_t column = next_column();
  std::string text(words_[next_++].text);
  if (!parse_time(text) && (is_next("s") || is_next("ms"))) {
    text += words_[next_++].text;
  }
  const std::optional<milliseconds> read = parse_time(text);
  if (!read) {
    return report(column, "expected " + expected + ", found " + quoted(text));
  }
  if (*read < least) {
    report(column, "expected a time of 1 ms or more, found " + quoted(text));
  }
  time = *read;
  return true;
}

/// Behind a number out of its range the line is read on, behind what is no number it is not.
bool FaultLine::read_number(const std::string& expected, std::uint64_t low, std::uint64_t high,
                            std::uint64_t& number) {
  const auto read = next_ < words_.size() ? plain_number(words_[next_].text) : std::nullopt;
  if (!read) {
    return report(expected);
  }
  if (low <= *read && *read <= high) {
    number = *read;
  } else {
    report(expected);
  }
  ++next_;
  return true;
}

/// All that follows.
bool FaultLine::read_drive_name() {
  if (next_ == words_.size()) {
    return report("the name of a device with a drive");
  }
  fault_.device = fault_.text.substr(next_column() - words_.front().column);
  next_ = words_.size();
  return true;
}

bool FaultLine::is_next(std::string_view text) const {
  return next_ < words_.size() && words_[next_].text == text;
}

/// "for 3 transfers".
bool FaultLine::is_next_count() const {
  constexpr std::size_t place_of_noun = 2;
  if (!is_next("for") || next_ + place_of_noun >= words_.size()) {
    return false;
  }
  const std::string_view noun = words_[next_ + place_of_noun].text;
  return noun == "transfer" || noun == "transfers";
}

bool FaultLine::take(std::string_view text) {
  const bool is_there = is_next(text);
  next_ += is_there ? 1 : 0;
  return is_there;
}

bool FaultLine::expect(std::string_view text) { return take(text) || report_word({text}); }

/// That the next word is none of these. Always false, for the caller to return, as are the others.
bool FaultLine::report_word(const std::vector<std::string_view>& words) {
  const std::string_view found = next_ < words_.size() ? words_[next_].text : std::string_view();
  return report(next_column(), "expected " + enumeration(all_quoted(words)) + ", found " +
                                   found_text() + hint(found, words));
}

bool FaultLine::report(const std::string& expected) {
  return report(next_column(), "expected " + expected + ", found " + found_text());
}

bool FaultLine::report(std::size_t column, std::string message) {
  problems_->push_back({number_, column, std::move(message)});
  return false;
}

std::size_t FaultLine::next_column() const {
  return next_ < words_.size() ? words_[next_].column
                               : words_.back().column + words_.back().text.size();
}

std::string FaultLine::found_text() const {
  return next_ < words_.size() ? quoted(words_[next_].text) : "the end of the line";
}

/// Where the node has one drive only, the line need not name it.
void FaultLine::check_drive(std::size_t column) {
  if (node_ == nullptr) {
    return;
  }
  const std::vector<std::string> drives = node_->device().drives();
  const std::string node = node_text(fault_.node_id);
  const auto beyond_comment =
      std::find_if(drives.begin(), drives.end(), [&](const std::string& drive) {
        return !fault_.device.empty() && drive.rfind(fault_.device + " #", 0) == 0;
      });
  if (beyond_comment != drives.end()) {
    report(column, node + " has a drive " + quoted(*beyond_comment) +
                       " as well, and no line can tell them apart: # begins a comment");
  } else if (drives.empty()) {
    report(column, node + " has no drive");
  } else if (fault_.device.empty() && drives.size() == 1) {
    fault_.device = drives.front();
  } else if (fault_.device.empty()) {
    report(column, node + " has several drives, name one behind \"of\": " +
                       enumeration(all_quoted(drives)));
  } else if (std::find(drives.begin(), drives.end(), fault_.device) == drives.end()) {
    report(column, node + " has no drive " + quoted(fault_.device) + ", expected " +
                       enumeration(all_quoted(drives)));
  }
}

const SimulatedBusNode* FaultLine::find_node(std::uint64_t node_id) const {
  const auto found =
      std::find_if(nodes_->begin(), nodes_->end(),
                   [&](const SimulatedBusNode* const node) { return node->node_id() == node_id; });
  return found == nodes_->end() ? nullptr : *found;
}

}  // namespace velmora_can_bridge

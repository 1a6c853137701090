#include "yaml_tree.hpp"

#include <yaml-cpp/depthguard.h>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/mark.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "text_check.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::size_t heaviest_document = longest_file;
// The parser's own bound on nesting, which it applies too late to what stands in brackets.
constexpr std::size_t deepest_flow = 500;
constexpr const char* too_deep = "nested too deeply";

Position to_position(const YAML::Mark& mark) {
  if (mark.is_null()) {
    return {};
  }
  return {static_cast<std::size_t>(mark.line) + 1, static_cast<std::size_t>(mark.column) + 1};
}

/// The sum, or the first weight that is too heavy: so that no sum overflows.
std::size_t joined_weight(std::size_t left, std::size_t right) {
  return std::min(left + right, heaviest_document + 1);
}

/// Builds the tree from the parser's events, one value each.
class TreeBuilder : public YAML::EventHandler {
 public:
  explicit TreeBuilder(ProblemList& problems) : problems_(&problems) {}

  void OnDocumentStart(const YAML::Mark& mark) override { start_ = to_position(mark); }
  void OnDocumentEnd() override {}

  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    YamlValue& value = create(YamlType::null, mark, anchor);
    // The parser places a missing value at whatever follows it; its key is nearer.
    if (const YamlValue* key = pending_key()) {
      value.at = key->at;
    }
    place(value);
  }

  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const auto found = anchors_.find(anchor);
    if (found == anchors_.end() || is_open(*found->second)) {
      problems_->error(to_position(mark), "the alias names the value that it stands in");
      place(create(YamlType::null, mark, YAML::NullAnchor));
      return;
    }
    place(*found->second);
  }

  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& text) override {
    check_tag(mark, tag);
    YamlValue& value = create(YamlType::scalar, mark, anchor);
    value.text = text;
    value.is_text = tag == "!";
    value.weight = joined_weight(value.weight, text.size());
    place(value);
  }

  void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    check_tag(mark, tag);
    open_.push_back(&create(YamlType::list, mark, anchor));
  }
  void OnSequenceEnd() override { close(); }

  void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    check_tag(mark, tag);
    open_.push_back(&create(YamlType::map, mark, anchor));
  }
  void OnMapEnd() override {
    take_entries(*open_.back());
    close();
  }

  Position start() const { return start_; }
  YamlTree take_tree() { return std::move(tree_); }

 private:
  YamlValue& create(YamlType type, const YAML::Mark& mark, YAML::anchor_t anchor) {
    YamlValue& value = tree_.values.emplace_back();
    value.type = type;
    value.at = to_position(mark);
    if (anchor != YAML::NullAnchor) {
      anchors_[anchor] = &value;
    }
    return value;
  }

  /// Puts a complete value where it belongs; keys and values of a map as elements until it ends.
  void place(YamlValue& value) {
    if (open_.empty()) {
      tree_.root = &value;
      return;
    }
    YamlValue& parent = *open_.back();
    parent.elements.push_back(&value);
    parent.weight = joined_weight(parent.weight, value.weight);
  }

  /// The key whose value comes next; null when none does.
  const YamlValue* pending_key() const {
    if (open_.empty() || open_.back()->type != YamlType::map) {
      return nullptr;
    }
    const std::vector<const YamlValue*>& items = open_.back()->elements;
    return items.size() % 2 == 1 ? items.back() : nullptr;
  }

  void close() {
    YamlValue& value = *open_.back();
    open_.pop_back();
    place(value);
  }

  bool is_open(const YamlValue& value) const {
    return std::find(open_.begin(), open_.end(), &value) != open_.end();
  }

  void check_tag(const YAML::Mark& mark, const std::string& tag) {
    if (tag != "?" && tag != "!" && !tag.empty()) {
      problems_->error(to_position(mark), "a board file has no tags, found " + quoted(tag));
    }
  }

  void take_entries(YamlValue& map) {
    std::map<std::string_view, Position> seen;
    for (std::size_t item = 0; item + 1 < map.elements.size(); item += 2) {
      const YamlValue& key = *map.elements[item];
      if (key.type != YamlType::scalar) {
        problems_->error(key.at, "expected a text as key");
        continue;
      }
      const auto [first, is_new] = seen.emplace(key.text, key.at);
      if (!is_new) {
        problems_->error(key.at, "key " + quoted(key.text) + " stands twice, first in line " +
                                     std::to_string(first->second.line));
        continue;
      }
      map.entries.push_back({&key, map.elements[item + 1]});
    }
    map.elements.clear();
  }

  ProblemList* problems_;
  Position start_;
  YamlTree tree_;
  /// Lists and maps that have begun and not ended, the innermost last.
  std::vector<YamlValue*> open_;
  std::map<YAML::anchor_t, YamlValue*> anchors_;
};

/// Reads the first document, and reports when there is none or a second one.
YamlTree read_document(std::istream& input, ProblemList& problems) {
  YAML::Parser parser(input);
  TreeBuilder builder(problems);
  parser.HandleNextDocument(builder);
  ProblemList unused;
  TreeBuilder second(unused);
  if (parser.HandleNextDocument(second)) {
    problems.error(second.start(), "a board file is one document, a second one begins here");
    return {};
  }
  return builder.take_tree();
}

/// `at`, or the end of the text when it lies behind it: where an escape is cut off, the parser
/// counts the characters that it misses.
Position within(const std::string& text, Position at) {
  const auto last_line = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  if (at.line != last_line) {
    return at;
  }
  // The first line begins behind npos, at 0.
  const std::size_t line_start = text.rfind('\n') + 1;
  return {at.line, std::min(at.column, text.size() - line_start + 1)};
}

/// A message of the parser, and what it means for whoever wrote the file.
struct ParserAdvice {
  std::string_view message;
  std::string_view advice;
};

constexpr ParserAdvice parser_advices[] = {
    {"end of map flow not found", "a { has no }, or a comma is missing before here"},
    {"end of sequence flow not found", "a [ has no ], or a comma is missing before here"},
    {"illegal flow end", "brackets close in the order in which they opened"},
    {"illegal tab when looking for indentation", "indent with blanks"},
    {"end of map not found", "indent keys of one map alike, with blanks alone"},
    {"end of sequence not found", "indent keys of one map alike, with blanks alone"},
    {"illegal map value",
     "a key before it lacks the blank behind its colon, or the line is indented too far"},
};

/// The parser's message, and what to look for.
std::string parser_text(const std::string& message) {
  for (const ParserAdvice& row : parser_advices) {
    if (row.message == message) {
      return message + " (" + std::string(row.advice) + ")";
    }
  }
  return shortened(message);
}

/// Where the parser refuses the text as nested too deeply; no value when it does not, for whatever
/// other reason.
std::optional<Position> too_deep_place(const std::string& text) {
  std::istringstream input(text);
  ProblemList unused;
  try {
    read_document(input, unused);
  } catch (const YAML::DeepRecursion& deep) {
    return to_position(deep.mark);
  } catch (const YAML::Exception& /*failure*/) {
    // The text was cut.
  }
  return {};
}

/// Where a text is nested too deeply in brackets; no value when it is not.
///
/// The parser keeps all of a bracket until the text behind it shows whether it is a key, two
/// hundred bytes for each one inside, and applies its bound on nesting after that. So it is first
/// given the text up to some bracket, of a quarter more each time, and decides: none is refused
/// that it would read.
std::optional<Position> find_too_deep_flow(const std::string& text) {
  std::size_t brackets = 0;
  std::size_t next_look = deepest_flow + 1;
  for (std::size_t position = 0; position < text.size(); ++position) {
    const bool opens = text[position] == '[' || text[position] == '{';
    if (!opens || ++brackets < next_look) {
      continue;
    }
    if (const std::optional<Position> place = too_deep_place(text.substr(0, position + 1))) {
      return place;
    }
    next_look += next_look / 4;
  }
  return {};
}

YamlTree read_first_document(const std::string& text, ProblemList& problems) {
  if (const std::optional<Position> place = find_too_deep_flow(text)) {
    problems.error(*place, too_deep);
    return {};
  }
  std::istringstream input(text);
  try {
    return read_document(input, problems);
  } catch (const YAML::DeepRecursion& deep) {
    problems.error(to_position(deep.mark), too_deep);
  } catch (const YAML::Exception& failure) {
    problems.error(within(text, to_position(failure.mark)), parser_text(failure.msg));
  }
  // Without a root, but not to be taken for an empty file.
  return {};
}

}  // namespace

std::string_view YamlEntry::key() const { return key_value->text; }

const YamlValue* YamlValue::find(std::string_view key) const {
  const auto found = std::find_if(entries.begin(), entries.end(),
                                  [&](const YamlEntry& entry) { return entry.key() == key; });
  return found == entries.end() ? nullptr : found->value;
}

YamlTree parse_yaml(const std::string& text, ProblemList& problems) {
  YamlTree tree = read_first_document(text, problems);
  if (problems.has_errors() && tree.root == nullptr) {
    return tree;
  }
  if (tree.root == nullptr || tree.root->type == YamlType::null) {
    problems.error({}, "the file is empty, expected a map with the key \"nodes\"");
    return {};
  }
  if (tree.root->weight > heaviest_document) {
    problems.error({}, "aliases repeat so much that the file is larger than " +
                           std::to_string(heaviest_document) + " bytes");
    return {};
  }
  return tree;
}

}  // namespace velmora_can_bridge

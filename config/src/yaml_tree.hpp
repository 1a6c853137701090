// A YAML document as a tree of values that know where they stand.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "problem_list.hpp"

namespace velmora_can_bridge {

struct YamlValue;

/// One key of a map with its value.
struct YamlEntry {
  std::string_view key() const;

  const YamlValue* key_value = nullptr;
  const YamlValue* value = nullptr;
};

enum class YamlType { null, scalar, list, map };

/// One value. An alias is the value that it names, so a value may be reached on several ways; it is
/// never reached from itself.
struct YamlValue {
  /// The value of the key; null when this has no such key or is no map.
  const YamlValue* find(std::string_view key) const;

  YamlType type = YamlType::null;
  /// A scalar in quotes or a block, which is a text whatever it holds.
  bool is_text = false;
  /// Of a missing value: where its key stands.
  Position at;
  /// Of a scalar.
  std::string text;
  /// Of a list.
  std::vector<const YamlValue*> elements;
  /// Of a map, in the order of the file. The keys are scalars, each of them once.
  std::vector<YamlEntry> entries;
  /// What walking over the value costs: one for itself, one for each character, and what its parts
  /// cost, those behind aliases as well.
  std::size_t weight = 1;
};

/// Owns the values of a document.
struct YamlTree {
  std::deque<YamlValue> values;
  /// Null when the document could not be read.
  const YamlValue* root = nullptr;
};

/// Reads the text, which `check_text` has accepted.
///
/// Reports what makes it no single YAML document: its syntax, nesting of 500 levels, a second
/// document, an empty file, aliases that repeat so much that the file grows beyond `longest_file`.
/// In all these cases there is no root. Reports as well, but goes on: tags, keys that are not
/// scalars, keys that stand twice in a map, aliases of the value that they stand in.
YamlTree parse_yaml(const std::string& text, ProblemList& problems);

}  // namespace velmora_can_bridge

// Where the parts of a record stand in the file, for checks of what has been read from it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "problem_list.hpp"
#include "yaml_tree.hpp"

namespace velmora_can_bridge {

/// Where keys of one sort were first seen.
template <typename Key>
class FirstUses {
 public:
  /// Reports `what`, used again at `at`.
  void add(const Key& key, Position at, const std::string& what, ProblemList& problems) {
    const auto [first, is_new] = uses_.emplace(key, at);
    if (!is_new) {
      problems.error(at,
                     what + " stands twice, first in line " + std::to_string(first->second.line));
    }
  }

 private:
  std::map<Key, Position> uses_;
};

/// The value of the key, or the record itself: for positions.
inline const YamlValue& member_or_record(const YamlValue& record, std::string_view key) {
  const YamlValue* member = record.find(key);
  return member == nullptr ? record : *member;
}

/// The elements of the list at `key`; none when there is no such list.
inline const std::vector<const YamlValue*>& elements_at(const YamlValue& record,
                                                        std::string_view key) {
  static const std::vector<const YamlValue*> none;
  const YamlValue* list = record.find(key);
  return list == nullptr ? none : list->elements;
}

/// The entries of the map at `key`; none when there is no such map.
inline const std::vector<YamlEntry>& entries_at(const YamlValue& record, std::string_view key) {
  static const std::vector<YamlEntry> none;
  const YamlValue* map = record.find(key);
  return map == nullptr ? none : map->entries;
}

}  // namespace velmora_can_bridge

#include "name_match.hpp"

#include <algorithm>

#include "ground/nearest_name.hpp"
#include "short_word.hpp"

namespace velmora_can_bridge {
namespace {

bool is_beginning_of(std::string_view beginning, std::string_view name) {
  return name.substr(0, beginning.size()) == beginning;
}

bool is_end_of(std::string_view words, std::string_view name) {
  return name.size() > words.size() + 1 && name[name.size() - words.size() - 1] == '_' &&
         name.substr(name.size() - words.size()) == words;
}

std::string unknown(const std::vector<std::string_view>& names, std::string_view wanted,
                    std::string_view noun) {
  const std::string_view nearest = nearest_name(wanted, names);
  return "no " + std::string(noun) + " is called " + in_quotes(wanted) +
         (nearest.empty() ? "" : ", did you mean \"" + std::string(nearest) + "\"?");
}

std::string ambiguous(const std::vector<std::string_view>& names,
                      const std::vector<std::size_t>& fits, std::string_view wanted) {
  std::vector<std::string> candidates;
  candidates.reserve(fits.size());
  for (const std::size_t position : fits) {
    candidates.emplace_back(names[position]);
  }
  return in_quotes(wanted) + " may be " + enumeration(candidates);
}

}  // namespace

Expected<std::size_t> match_name(const std::vector<std::string_view>& names,
                                 std::string_view wanted, std::string_view noun) {
  const auto exact = std::find(names.begin(), names.end(), wanted);
  if (exact != names.end()) {
    return static_cast<std::size_t>(exact - names.begin());
  }
  std::vector<std::size_t> fits;
  for (std::size_t position = 0; position < names.size() && !wanted.empty(); ++position) {
    if (is_beginning_of(wanted, names[position]) || is_end_of(wanted, names[position])) {
      fits.push_back(position);
    }
  }
  if (fits.empty()) {
    return Unexpected{unknown(names, wanted, noun)};
  }
  if (fits.size() > 1) {
    return Unexpected{ambiguous(names, fits, wanted)};
  }
  return fits.front();
}

}  // namespace velmora_can_bridge

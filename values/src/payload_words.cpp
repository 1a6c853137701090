#include "velmora_can_bridge/values/payload_words.hpp"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string_view>

#include "name_match.hpp"
#include "payload_value.hpp"
#include "short_word.hpp"
#include "word_value.hpp"

namespace velmora_can_bridge {
namespace {

using Bytes = std::vector<std::uint8_t>;
using LayoutOf = std::function<Expected<PayloadLayout>(const Bytes& beginning)>;

/// A word with the name before its "=".
struct NamedWord {
  std::string_view name;
  std::string_view text;
};

/// Words in order, then words by name.
struct SplitWords {
  std::vector<std::string_view> in_order;
  std::vector<NamedWord> by_name;
};

/// Where the "=" behind a name stands; what stands behind a colon is a value.
std::size_t name_end(std::string_view word) {
  const std::size_t end = word.find_first_of("=:");
  return end != std::string_view::npos && end != 0 && word[end] == '=' ? end
                                                                       : std::string_view::npos;
}

Expected<SplitWords> split(const std::vector<std::string>& words) {
  SplitWords split;
  for (const std::string_view word : words) {
    const std::size_t end = name_end(word);
    if (end != std::string_view::npos) {
      split.by_name.push_back({word.substr(0, end), word.substr(end + 1)});
    } else if (split.by_name.empty()) {
      split.in_order.push_back(word);
    } else {
      return Unexpected{in_quotes(word) + " needs a name, as the value before it has one"};
    }
  }
  return split;
}

Expected<std::size_t> find_value(const PayloadLayout& layout, std::string_view name) {
  std::vector<std::string_view> names;
  for (const PayloadValue& value : layout.values) {
    names.push_back(value.name);
  }
  return match_name(names, name, "value");
}

/// Where a text may be meant that holds an "=".
std::string text_hint(const PayloadLayout& layout, const NamedWord& word) {
  const bool has_text =
      std::any_of(layout.values.begin(), layout.values.end(),
                  [](const PayloadValue& value) { return value.type == ValueType::text; });
  const std::string whole = std::string(word.name) + "=" + std::string(word.text);
  return has_text ? "; for a text write text:" + short_word(whole) : "";
}

/// The word for each value of the layout, as far as there is one.
using Assigned = std::vector<std::optional<std::string_view>>;

Expected<Assigned> assign(const PayloadLayout& layout, const SplitWords& words) {
  Assigned assigned(layout.values.size());
  const std::size_t in_order = std::min(assigned.size(), words.in_order.size());
  std::copy_n(words.in_order.begin(), in_order, assigned.begin());
  if (words.in_order.size() > in_order && !layout.more_may_follow) {
    return Unexpected{in_quotes(words.in_order[in_order]) + " is one value too many"};
  }
  for (const NamedWord& word : words.by_name) {
    const Expected<std::size_t> position = find_value(layout, word.name);
    if (!position) {
      return Unexpected{position.error() + text_hint(layout, word)};
    }
    if (assigned[*position]) {
      return Unexpected{layout.values[*position].name + " is given twice"};
    }
    assigned[*position] = word.text;
  }
  return assigned;
}

/// The values at the beginning that choose the others; as far as they are given.
Expected<Bytes> selecting_bytes(const PayloadLayout& layout, const SplitWords& words) {
  Bytes bytes;
  for (std::size_t position = 0; position < layout.selecting; ++position) {
    std::optional<std::string_view> text;
    if (position < words.in_order.size()) {
      text = words.in_order[position];
    }
    for (const NamedWord& word : words.by_name) {
      const Expected<std::size_t> named = find_value(layout, word.name);
      text = named && *named == position ? word.text : text;
    }
    if (!text) {
      return bytes;
    }
    const PayloadValue& value = layout.values[position];
    const Expected<Bytes> encoded = word_bytes(value, *text);
    if (!encoded) {
      return Unexpected{value.name + ": " + encoded.error()};
    }
    bytes.insert(bytes.end(), encoded->begin(), encoded->end());
  }
  return bytes;
}

/// Why the values that are there do not make a payload without those that are not.
std::optional<std::string> gap(const PayloadLayout& layout, const Assigned& assigned) {
  std::size_t given = assigned.size();
  while (given > 0 && !assigned[given - 1] && layout.values[given - 1].is_optional) {
    --given;
  }
  const auto missing = std::find(
      assigned.begin(), assigned.begin() + static_cast<std::ptrdiff_t>(given), std::nullopt);
  const auto position = static_cast<std::size_t>(missing - assigned.begin());
  if (position == given) {
    return std::nullopt;
  }
  return layout.values[position].name + " is missing";
}

/// The bytes of all words that there are; those of a value that is left out are missing.
Expected<Bytes> encode(const PayloadLayout& layout, const Assigned& assigned,
                       const SplitWords& words) {
  Bytes payload;
  const auto add = [&](const PayloadValue& value,
                       std::string_view word) -> std::optional<std::string> {
    const Expected<Bytes> bytes = word_bytes(value, word);
    if (!bytes) {
      return value.name + ": " + bytes.error();
    }
    if (bytes->empty() && value.is_optional) {
      return value.name + ": an empty value would write the default";
    }
    payload.insert(payload.end(), bytes->begin(), bytes->end());
    return std::nullopt;
  };
  for (std::size_t position = 0; position < assigned.size(); ++position) {
    const auto refusal =
        assigned[position] ? add(layout.values[position], *assigned[position]) : std::nullopt;
    if (refusal) {
      return Unexpected{*refusal};
    }
  }
  for (std::size_t position = assigned.size(); position < words.in_order.size(); ++position) {
    if (const auto refusal = add(layout.values.back(), words.in_order[position])) {
      return Unexpected{*refusal};
    }
  }
  return payload;
}

Expected<Bytes> by_layout(const PayloadLayout& layout, const SplitWords& words) {
  const Expected<Assigned> assigned = assign(layout, words);
  if (!assigned) {
    return Unexpected{assigned.error()};
  }
  // What is wrong with a word that is there says more than that another is missing.
  Expected<Bytes> payload = encode(layout, *assigned, words);
  const auto missing = gap(layout, *assigned);
  return payload && missing ? Unexpected{*missing} : payload;
}

Unexpected<std::string> refused(const std::string& reason, const PayloadLayout& layout) {
  return {reason + "; expected " + payload_layout_text(layout)};
}

Expected<Bytes> from_words(const LayoutOf& layout_of, const std::vector<std::string>& words) {
  Expected<PayloadLayout> layout = layout_of({});
  if (!layout) {
    return Unexpected{"no payload can be right: " + layout.error()};
  }
  const Expected<SplitWords> split_words = split(words);
  if (!split_words) {
    return refused(split_words.error(), *layout);
  }
  if (layout->selecting != 0) {
    const Expected<Bytes> beginning = selecting_bytes(*layout, *split_words);
    if (!beginning) {
      return refused(beginning.error(), *layout);
    }
    layout = layout_of(*beginning);
    if (!layout) {
      return Unexpected{"no payload can be right: " + layout.error()};
    }
  }
  Expected<Bytes> payload = by_layout(*layout, *split_words);
  return payload ? payload : refused(payload.error(), *layout);
}

}  // namespace

Expected<std::vector<std::uint8_t>> payload_from_words(const PayloadUse& use,
                                                       const std::vector<std::string>& words) {
  return from_words([&](const Bytes& beginning) { return payload_layout(use, beginning); }, words);
}

Expected<std::vector<std::uint8_t>> object_from_words(const NodeConfig* node, std::uint16_t index,
                                                      std::uint8_t sub_index,
                                                      const std::vector<std::string>& words) {
  PayloadLayout layout;
  layout.values = {object_payload(node, "value", index, sub_index)};
  layout.more_may_follow = layout.values.front().type == ValueType::bytes;
  return from_words([&](const Bytes& /*beginning*/) { return if_possible(layout); }, words);
}

}  // namespace velmora_can_bridge

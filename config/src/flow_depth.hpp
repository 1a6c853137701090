// How deep the brackets of a YAML text are nested, before the parser sees it.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velmora_can_bridge {

/// Looks for lists and maps in brackets ("[", "{") that stand more than `limit` deep in one
/// another: how many bytes of the text there are up to the first bracket too many, that one
/// included; no value when there is none. Brackets inside quotes, comments, plain texts and block
/// texts do not count. One pass over the text, and memory for the indentations that enclose a line.
///
/// The parser holds back all of a bracket until the text behind it shows whether it is a key, two
/// hundred bytes for each bracket inside; its own bound on nesting comes too late.
///
/// Made for the texts that the parser accepts. In others it may count wrongly.
std::optional<std::size_t> find_deep_flow(std::string_view text, std::size_t limit);

}  // namespace velmora_can_bridge

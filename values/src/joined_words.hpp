// Words one after another.
#pragma once

#include <string>
#include <string_view>

namespace velmora_can_bridge {

/// Adds `words` to `text`, ", " between the two where both are there.
inline void join_words(std::string& text, std::string_view words) {
  text += text.empty() || words.empty() ? "" : ", ";
  text += words;
}

}  // namespace velmora_can_bridge

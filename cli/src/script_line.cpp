#include "script_line.hpp"

#include <optional>
#include <string_view>

#include "ground/parse_time.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using Words = std::vector<std::string>;

bool is_blank(char character) { return character == ' ' || character == '\t' || character == '\r'; }

bool is_quote(char character) { return character == '"' || character == '\''; }

/// Takes the next word off `rest`, which begins with one; no value when a quote does not end.
std::optional<std::string> take_word(std::string_view& rest) {
  std::string word;
  while (!rest.empty() && !is_blank(rest.front())) {
    const char first = rest.front();
    rest.remove_prefix(1);
    if (!is_quote(first)) {
      word += first;
      continue;
    }
    const std::size_t end = rest.find(first);
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    word += rest.substr(0, end);
    rest.remove_prefix(end + 1);
  }
  return word;
}

Unexpected<std::string> no_time(const std::string& word) {
  return Unexpected{"\"" + word + "\" is no time, expected one such as 200ms or 5s, up to 86400s"};
}

/// "wait 5 s", "wait left_wheel fault 5 s".
std::string with_joined_time(const std::string& text, const Words& words) {
  const std::string joined =
      words.size() < 3 ? std::string() : words[words.size() - 2] + words.back();
  const bool is_split = !joined.empty() && parse_time(joined) && !parse_time(words.back());
  return is_split ? text + ", did you mean \"" + joined + "\"?" : text;
}

Expected<ScriptLine> parse_wait(const Words& words) {
  const bool is_split_pause = words.size() == 3 && parse_time(words[1] + words[2]);
  if (words.size() == 2) {
    const std::optional<milliseconds> time = parse_time(words[1]);
    return time ? Expected<ScriptLine>(PauseLine{*time}) : no_time(words[1]);
  }
  if (words.size() < 3 || words.size() > 4 || is_split_pause) {
    return Unexpected{
        with_joined_time(R"(expected "wait TIME" or "wait DEVICE CONDITION [TIME]")", words)};
  }
  WaitLine line{words[1], words[2]};
  if (words.size() == 4) {
    const std::optional<milliseconds> patience = parse_time(words[3]);
    if (!patience) {
      return no_time(words[3]);
    }
    line.patience = *patience;
  }
  return ScriptLine(line);
}

Expected<ScriptLine> parse_operation(Words words, bool explains) {
  if (words.size() < 2) {
    return Unexpected{std::string("expected \"DEVICE OPERATION [PAYLOAD...]\"")};
  }
  const Words payload(words.begin() + 2, words.end());
  return ScriptLine(OperationLine{explains, words[0], words[1], payload});
}

}  // namespace

Expected<Words> script_words(const std::string& line) {
  Words words;
  std::string_view rest = line;
  while (true) {
    while (!rest.empty() && is_blank(rest.front())) {
      rest.remove_prefix(1);
    }
    if (rest.empty() || rest.front() == '#') {
      return words;
    }
    std::optional<std::string> word = take_word(rest);
    if (!word) {
      return Unexpected{std::string("a quote does not end")};
    }
    words.push_back(*std::move(word));
  }
}

Expected<ScriptLine> parse_script_line(const std::string& line) {
  Expected<Words> words = script_words(line);
  if (!words) {
    return Unexpected{words.error()};
  }
  if (words->empty()) {
    return ScriptLine(EmptyLine{});
  }
  const std::string& first = words->front();
  if (first == "wait") {
    return parse_wait(*words);
  }
  const bool explains = first == "explain";
  if (explains || first == "run") {
    return parse_operation(Words(words->begin() + 1, words->end()), explains);
  }
  return parse_operation(*words, false);
}

}  // namespace velmora_can_bridge

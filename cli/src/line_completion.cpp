#include "line_completion.hpp"

#include <algorithm>

#include "board_words.hpp"
#include "drive_condition.hpp"
#include "velmora_can_bridge/config/board_file.hpp"

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

/// The words before the one that is being typed.
Words complete_words(const std::string& line) {
  Words words;
  std::size_t begin = 0;
  for (std::size_t end = line.find(' '); end != std::string::npos; end = line.find(' ', begin)) {
    if (end != begin) {
      words.push_back(line.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return words;
}

/// For what stands behind the word "wait".
Words wait_words(const Words& typed, const BoardFile& file) {
  if (typed.empty()) {
    return drive_words(file);
  }
  Words words;
  if (typed.size() == 1) {
    for (const DriveCondition& condition : drive_conditions()) {
      words.push_back(condition.name);
    }
  }
  return words;
}

/// For a device, an operation and its payload.
Words request_words(const Words& typed, const std::string& begun, const BoardFile& file) {
  if (typed.empty()) {
    return device_words(file);
  }
  if (typed.size() == 1) {
    return operation_words(file, typed[0]);
  }
  return payload_words(file, typed[0], typed[1], Words(typed.begin() + 2, typed.end()), begun);
}

Words words_behind(const Words& typed, const std::string& begun, const BoardFile& file) {
  if (typed.empty()) {
    Words words{"explain", "run", "wait"};
    const Words devices = device_words(file);
    words.insert(words.end(), devices.begin(), devices.end());
    return words;
  }
  const Words rest(typed.begin() + 1, typed.end());
  if (typed[0] == "wait") {
    return wait_words(rest, file);
  }
  const bool has_verb = typed[0] == "run" || typed[0] == "explain";
  return request_words(has_verb ? rest : typed, begun, file);
}

}  // namespace

std::vector<std::string> line_candidates(const std::string& line, const BoardFile& file) {
  const std::string begun = line.substr(line.rfind(' ') + 1);
  return candidates_among(words_behind(complete_words(line), begun, file), begun);
}

std::string common_beginning(const std::vector<std::string>& words) {
  if (words.empty()) {
    return "";
  }
  std::string common = words.front();
  for (const std::string& word : words) {
    const auto difference =
        std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
    common.erase(difference, common.end());
  }
  return common;
}

}  // namespace velmora_can_bridge

#include "line_completion.hpp"

#include <algorithm>

#include "drive_condition.hpp"
#include "ground/device_need.hpp"
#include "velmora_can_bridge/config/board_file.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

/// The device and its node.
struct FoundDevice {
  const NodeConfig* node = nullptr;
  const DeviceOdEntry* entry = nullptr;
};

FoundDevice find_device(const BoardFile& file, const std::string& name) {
  for (const NodeConfig& node : file.nodes) {
    const auto found = node.board.device_od_map.find(name);
    if (found != node.board.device_od_map.end()) {
      return {&node, &found->second};
    }
  }
  return {};
}

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

void add_devices(Words& words, const BoardFile& file, bool drives_only) {
  for (const NodeConfig& node : file.nodes) {
    for (const auto& [name, entry] : node.board.device_od_map) {
      if (!drives_only || is_drive(entry)) {
        words.push_back(name);
      }
    }
  }
}

Words operations_of(const FoundDevice& device) {
  Words words;
  for (const auto& [name, operation] : device.node->operations) {
    if (suits(*device.entry, device_need(operation.kind))) {
      words.push_back(name);
    }
  }
  return words;
}

bool is_named(const std::string& word) { return word.find('=') != std::string::npos; }

/// Whether the word gives the value by its name, or by the last words of it.
bool gives(const std::string& word, const PayloadValue& value) {
  const std::string name = word.substr(0, word.find('='));
  const std::string end = "_" + name;
  return is_named(word) &&
         (value.name == name || (value.name.size() > end.size() &&
                                 value.name.substr(value.name.size() - end.size()) == end));
}

void add_codes(Words& words, const std::string& before, const PayloadValue& value) {
  for (const NamedCode& code : value.values) {
    words.push_back(before + code.name);
  }
}

/// Words for one more value of a payload, of which `typed` are there and `begun` is begun.
Words payload_words(const PayloadLayout& layout, const Words& typed, const std::string& begun) {
  const auto in_order =
      static_cast<std::size_t>(std::find_if(typed.begin(), typed.end(), is_named) - typed.begin());
  Words words;
  for (std::size_t position = in_order; position < layout.values.size(); ++position) {
    const PayloadValue& value = layout.values[position];
    if (gives(begun, value)) {
      add_codes(words, begun.substr(0, begun.find('=') + 1), value);
    } else if (std::none_of(typed.begin(), typed.end(),
                            [&](const std::string& word) { return gives(word, value); })) {
      words.push_back(value.name + "=");
      add_codes(words, value.name + "=", value);
    }
    if (position == typed.size()) {
      add_codes(words, "", value);
    }
  }
  return words;
}

/// For what stands behind the word "wait".
Words wait_words(const Words& typed, const BoardFile& file) {
  Words words;
  if (typed.empty()) {
    add_devices(words, file, true);
  }
  if (typed.size() == 1) {
    for (const DriveCondition& condition : drive_conditions()) {
      words.push_back(condition.name);
    }
  }
  return words;
}

/// For an operation.
Words operation_words(const Words& typed, const std::string& begun, const BoardFile& file) {
  if (typed.empty()) {
    Words words;
    add_devices(words, file, false);
    return words;
  }
  const FoundDevice device = find_device(file, typed[0]);
  if (device.node == nullptr) {
    return {};
  }
  if (typed.size() == 1) {
    return operations_of(device);
  }
  const auto operation = device.node->operations.find(typed[1]);
  if (operation == device.node->operations.end()) {
    return {};
  }
  const auto layout = payload_layout({*device.node, typed[0], operation->second});
  return layout ? payload_words(*layout, Words(typed.begin() + 2, typed.end()), begun) : Words();
}

Words words_behind(const Words& typed, const std::string& begun, const BoardFile& file) {
  if (typed.empty()) {
    Words words{"explain", "run", "wait"};
    add_devices(words, file, false);
    return words;
  }
  const Words rest(typed.begin() + 1, typed.end());
  if (typed[0] == "wait") {
    return wait_words(rest, file);
  }
  const bool has_verb = typed[0] == "run" || typed[0] == "explain";
  return operation_words(has_verb ? rest : typed, begun, file);
}

}  // namespace

std::vector<std::string> line_candidates(const std::string& line, const BoardFile& file) {
  const std::string begun = line.substr(line.rfind(' ') + 1);
  Words words = words_behind(complete_words(line), begun, file);
  words.erase(std::remove_if(words.begin(), words.end(),
                             [&](const std::string& word) { return word.rfind(begun, 0) != 0; }),
              words.end());
  std::sort(words.begin(), words.end());
  return words;
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

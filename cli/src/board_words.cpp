#include "board_words.hpp"

#include <algorithm>

#include "ground/device_need.hpp"
#include "ground/number_text.hpp"
#include "requested_operation.hpp"
#include "velmora_can_bridge/values/payload_layout.hpp"

namespace velmora_can_bridge {
namespace {

using Words = std::vector<std::string>;

/// The devices for which `is_meant(entry)` is true.
template <typename Condition>
Words devices_where(const BoardFile& file, const Condition& is_meant) {
  Words words;
  for (const NodeConfig& node : file.nodes) {
    for (const auto& [name, entry] : node.board.device_od_map) {
      if (is_meant(entry)) {
        words.push_back(name);
      }
    }
  }
  return words;
}

/// Whether an operation of the node can be run on the device, or on the id of the node.
bool can_run(const NodeConfig& node, const std::string& device, const OperationConfig& operation) {
  const DeviceNeed need = device_need(operation.kind);
  const auto entry = node.board.device_od_map.find(device);
  return entry == node.board.device_od_map.end() ? need == DeviceNeed::none
                                                 : suits(entry->second, need);
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

Words layout_words(const PayloadLayout& layout, const Words& typed, const std::string& begun) {
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

}  // namespace

std::vector<std::string> device_words(const BoardFile& file) {
  return devices_where(file, [](const DeviceOdEntry& /*entry*/) { return true; });
}

std::vector<std::string> drive_words(const BoardFile& file) {
  return devices_where(file, [](const DeviceOdEntry& entry) { return is_drive(entry); });
}

std::vector<std::string> node_words(const BoardFile& file) {
  Words words;
  for (const NodeConfig& node : file.nodes) {
    words.push_back(std::to_string(node.node_id));
    words.push_back(hex<2>(node.node_id));
  }
  return words;
}

std::vector<std::string> operation_words(const BoardFile& file, const std::string& device) {
  const NodeConfig* const node = node_of(file, device);
  Words words;
  if (node == nullptr) {
    return words;
  }
  for (const auto& [name, operation] : node->operations) {
    if (can_run(*node, device, operation)) {
      words.push_back(name);
    }
  }
  return words;
}

std::vector<std::string> payload_words(const BoardFile& file, const std::string& device,
                                       const std::string& operation,
                                       const std::vector<std::string>& typed,
                                       const std::string& begun) {
  const auto found = find_operation(file, "", device, operation);
  if (!found) {
    return {};
  }
  const auto layout = payload_layout({*found->node, device, *found->operation});
  return layout ? layout_words(*layout, typed, begun) : Words();
}

std::vector<std::string> candidates_among(std::vector<std::string> words,
                                          const std::string& begun) {
  words.erase(std::remove_if(words.begin(), words.end(),
                             [&](const std::string& word) { return word.rfind(begun, 0) != 0; }),
              words.end());
  std::sort(words.begin(), words.end());
  words.erase(std::unique(words.begin(), words.end()), words.end());
  return words;
}

}  // namespace velmora_can_bridge

// Words that a board file offers to whoever types a device, an operation and its payload.
#pragma once

#include <string>
#include <vector>

namespace velmora_can_bridge {

struct BoardFile;

/// The names of all devices, node by node.
std::vector<std::string> device_words(const BoardFile& file);

/// The names of the drives among them.
std::vector<std::string> drive_words(const BoardFile& file);

/// What stands for the nodes where a device is none of theirs: "16" and "0x10".
std::vector<std::string> node_words(const BoardFile& file);

/// The names of the operations that suit the device; of a node id those that need no device. None
/// for what is neither.
std::vector<std::string> operation_words(const BoardFile& file, const std::string& device);

/// For one more value of the payload of the operation, of which the words `typed` are there and
/// `begun` is begun: names of values ("red=") and of their codes, alone or behind the name.
std::vector<std::string> payload_words(const BoardFile& file, const std::string& device,
                                       const std::string& operation,
                                       const std::vector<std::string>& typed,
                                       const std::string& begun);

/// Those of the words that begin with `begun`, each once, sorted.
std::vector<std::string> candidates_among(std::vector<std::string> words, const std::string& begun);

}  // namespace velmora_can_bridge

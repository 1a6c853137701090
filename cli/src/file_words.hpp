// Names of files and of CAN interfaces that a person may want to type.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velmora_can_bridge {

enum class FileSort : std::uint8_t {
  any,
  /// Regular files "*.yaml" and "*.yml".
  boards,
};

/// Paths that begin with `begun`, in no order: files of that sort, and all folders. Those whose
/// name begins with a point are among them where the point is typed. A "~" in front stands for
/// `home`. None where the folder cannot be read.
std::vector<std::string> file_words(const std::string& begun, FileSort sort, std::string_view home);

/// The CAN interfaces among the network interfaces in the folder, which is that of the kernel
/// ("/sys/class/net") or like it.
std::vector<std::string> can_interface_words(const std::string& folder);

}  // namespace velmora_can_bridge

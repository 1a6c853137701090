#include "file_words.hpp"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "shell_line.hpp"

namespace velmora_can_bridge {
namespace {

namespace fs = std::filesystem;

/// As the kernel numbers the sorts of links: ARPHRD_CAN.
constexpr int can_link = 280;

/// Calls `take(entry)` for all that the folder holds, as far as it can be read.
template <typename Take>
void for_each_entry(const fs::path& folder, const Take& take) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    take(*entry);
  }
}

bool is_offered(const fs::directory_entry& entry, FileSort sort) {
  std::error_code error;
  if (sort == FileSort::any || entry.is_directory(error)) {
    return true;
  }
  const fs::path extension = entry.path().extension();
  return (extension == ".yaml" || extension == ".yml") && entry.is_regular_file(error);
}

}  // namespace

std::vector<std::string> file_words(const std::string& begun, FileSort sort,
                                    std::string_view home) {
  const std::size_t name_begin = begun.rfind('/') + 1;
  const std::string folder = begun.substr(0, name_begin);
  const std::string begun_name = begun.substr(name_begin);
  std::vector<std::string> words;
  for_each_entry(folder.empty() ? "." : expanded_path(folder, home), [&](const auto& entry) {
    const std::string name = entry.path().filename().string();
    const bool is_hidden = name.front() == '.' && begun_name.empty();
    if (!is_hidden && name.rfind(begun_name, 0) == 0 && is_offered(entry, sort)) {
      words.push_back(folder + name);
    }
  });
  return words;
}

std::vector<std::string> can_interface_words(const std::string& folder) {
  std::vector<std::string> words;
  for_each_entry(folder, [&](const fs::directory_entry& entry) {
    int link = 0;
    if (std::ifstream(entry.path() / "type") >> link && link == can_link) {
      words.push_back(entry.path().filename().string());
    }
  });
  return words;
}

}  // namespace velmora_can_bridge

// What the programs that read manual pages say of one.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace velmora_can_bridge {

/// What the command of the shell prints, the standard error included.
inline std::string printed_by(const std::string& command) {
  std::FILE* const output = popen((command + " 2>&1").c_str(), "r");
  std::string text;
  for (int next = std::fgetc(output); next != EOF; next = std::fgetc(output)) {
    text += static_cast<char>(next);
  }
  pclose(output);
  return text;
}

/// A page in a file of its own.
class PageFile {
 public:
  PageFile(const std::string& name, const std::string& page)
      : path_(testing::TempDir() + "velmora_" + name) {
    std::ofstream(path_, std::ios::binary) << page;
  }

  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  ~PageFile() { std::filesystem::remove(path_); }

  /// The page on a terminal of so many columns, without fonts.
  std::string shown(std::size_t columns = 80) const {
    return printed_by("MANWIDTH=" + std::to_string(columns) + " man -E UTF-8 -l '" + path_ +
                      "' 2>/dev/null");
  }

  /// What is wrong with the page for either program; empty where nothing is.
  std::string warnings() const {
    return printed_by("mandoc -Tlint -W warning '" + path_ + "'") +
           printed_by("man --warnings -E UTF-8 -l '" + path_ + "' 2>&1 >/dev/null");
  }

 private:
  const std::string path_;
};

}  // namespace velmora_can_bridge

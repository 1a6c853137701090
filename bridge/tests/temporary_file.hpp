// A file of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velmora_can_bridge {

/// A path that is free at first; whatever stands there at the end is removed.
class TemporaryFile {
 public:
  TemporaryFile()
      : path_(std::filesystem::path(testing::TempDir()) /
              (std::string("velmora_bridge_") +
               testing::UnitTest::GetInstance()->current_test_info()->name())) {
    std::filesystem::remove_all(path_);
  }
  ~TemporaryFile() { std::filesystem::remove_all(path_); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile(TemporaryFile&&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  TemporaryFile& operator=(TemporaryFile&&) = delete;

  std::string path() const { return path_.string(); }

  void write(const std::string& text) const { std::ofstream(path_, std::ios::binary) << text; }

  std::string text() const {
    std::ifstream stream(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

 private:
  const std::filesystem::path path_;
};

}  // namespace velmora_can_bridge

#include "ground/read_file.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace velmora_can_bridge {
namespace {

TEST(ReadFile, gives_all_bytes_up_to_the_limit_and_one_more) {
  const std::string path = testing::TempDir() + "velmora_read_file";
  std::ofstream(path, std::ios::binary) << "a\r\nb";

  EXPECT_EQ(read_file(path, 10), Expected<std::string>("a\r\nb"));
  EXPECT_EQ(read_file(path, 4), Expected<std::string>("a\r\nb"));
  EXPECT_EQ(read_file(path, 2), Expected<std::string>("a\r\n"));
  std::filesystem::remove(path);
}

TEST(ReadFile, tells_why_there_is_nothing) {
  EXPECT_EQ(read_file("/nowhere", 10).error(), "cannot be read: No such file or directory");
  EXPECT_EQ(read_file(testing::TempDir(), 10).error(), "cannot be read: Is a directory");
}

}  // namespace
}  // namespace velmora_can_bridge

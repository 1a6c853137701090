#include "file_words.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace velmora_can_bridge {
namespace {

using testing::UnorderedElementsAre;

/// A folder of the test's own, which is the home.
class FileWords : public testing::Test {
 protected:
  FileWords() {
    std::filesystem::create_directories(folder + "/boards");
    for (const char* const name : {"a.yaml", "b.yml", "c.txt", ".d.yaml", "boards/my e.yaml"}) {
      std::ofstream(folder + "/" + name) << "text";
    }
  }

  ~FileWords() override { std::filesystem::remove_all(folder); }

  const std::string folder = testing::TempDir() + "velmora_file_words_" +
                             testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(FileWords, are_boards_and_folders) {
  EXPECT_THAT(file_words(folder + "/", FileSort::boards, ""),
              UnorderedElementsAre(folder + "/a.yaml", folder + "/b.yml", folder + "/boards"));
}

TEST_F(FileWords, are_all_files) {
  EXPECT_THAT(file_words(folder + "/", FileSort::any, ""),
              UnorderedElementsAre(folder + "/a.yaml", folder + "/b.yml", folder + "/c.txt",
                                   folder + "/boards"));
}

TEST_F(FileWords, begin_with_what_is_typed) {
  EXPECT_THAT(file_words(folder + "/b", FileSort::boards, ""),
              UnorderedElementsAre(folder + "/b.yml", folder + "/boards"));
  EXPECT_THAT(file_words(folder + "/boards/my", FileSort::boards, ""),
              UnorderedElementsAre(folder + "/boards/my e.yaml"));
}

TEST_F(FileWords, hold_hidden_files_where_the_point_is_typed) {
  EXPECT_THAT(file_words(folder + "/.", FileSort::boards, ""),
              UnorderedElementsAre(folder + "/.d.yaml"));
}

TEST_F(FileWords, keep_the_sign_for_the_home) {
  EXPECT_THAT(file_words("~/a", FileSort::boards, folder), UnorderedElementsAre("~/a.yaml"));
}

TEST_F(FileWords, are_those_of_the_working_folder_without_a_path) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder);
  const std::vector<std::string> words = file_words("", FileSort::any, "");
  std::filesystem::current_path(before);
  EXPECT_THAT(words, UnorderedElementsAre("a.yaml", "b.yml", "c.txt", "boards"));
}

TEST_F(FileWords, hold_no_pipe_of_the_name_of_a_board) {
  ASSERT_EQ(mkfifo((folder + "/pipe.yaml").c_str(), 0600), 0);
  EXPECT_THAT(file_words(folder + "/p", FileSort::boards, ""), UnorderedElementsAre());
}

TEST_F(FileWords, are_none_in_a_folder_that_is_not_there) {
  EXPECT_THAT(file_words(folder + "/nowhere/", FileSort::any, ""), UnorderedElementsAre());
}

TEST_F(FileWords, of_interfaces_are_those_of_can_alone) {
  const std::vector<std::pair<std::string, std::string>> links{
      {"can0", "280\n"}, {"eth0", "1\n"}, {"vcan1", "280\n"}, {"odd0", "none\n"}};
  for (const auto& [name, type] : links) {
    std::filesystem::create_directories(folder + "/net/" + name);
    std::ofstream(folder + "/net/" + name + "/type") << type;
  }
  std::filesystem::create_directories(folder + "/net/empty");
  EXPECT_THAT(can_interface_words(folder + "/net"), UnorderedElementsAre("can0", "vcan1"));
  EXPECT_THAT(can_interface_words(folder + "/nowhere"), UnorderedElementsAre());
}

}  // namespace
}  // namespace velmora_can_bridge

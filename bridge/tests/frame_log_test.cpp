#include "velmora_can_bridge/bridge/frame_log.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <thread>
#include <vector>

#include "support/full_disk.hpp"
#include "temporary_file.hpp"
#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {
namespace {

using std::chrono::milliseconds;
using testing::EndsWith;

constexpr CanFrame start_all{0x000, 2, {1, 0}};
constexpr const char* old_line = "(1600000000.000000) can0 000#0100\n";

class FrameLogTest : public testing::Test {
 protected:
  /// Why a log at the file's path is refused; empty when it is not.
  std::string problem() const {
    const auto log = FrameLog::open(file.path(), "can0");
    return log ? "" : log.error();
  }

  std::vector<std::string> lines() const {
    std::istringstream stream(file.text());
    std::vector<std::string> read;
    for (std::string line; std::getline(stream, line);) {
      read.push_back(line);
    }
    return read;
  }

  static FrameLog::Time at(milliseconds time) { return FrameLog::Time(time); }

  TemporaryFile file;
};

TEST_F(FrameLogTest, makes_the_file_and_has_no_problem) {
  const auto log = FrameLog::open(file.path(), "can0");
  ASSERT_TRUE(log);
  EXPECT_TRUE((*log)->is_complete());
  EXPECT_TRUE(std::filesystem::is_regular_file(file.path()));
}

TEST_F(FrameLogTest, line_is_in_the_file_at_once) {
  const auto opened = FrameLog::open(file.path(), "can7");
  ASSERT_TRUE(opened);
  FrameLog& log = **opened;
  log.write(start_all, at(milliseconds(0)));
  ASSERT_EQ(lines().size(), 1U);
  EXPECT_TRUE(is_can_log_line(lines()[0])) << lines()[0];
  EXPECT_THAT(lines()[0], EndsWith(" can7 000#0100"));
}

TEST_F(FrameLogTest, times_are_as_far_apart_as_the_frames) {
  const auto opened = FrameLog::open(file.path(), "can0");
  ASSERT_TRUE(opened);
  FrameLog& log = **opened;
  log.write(start_all, at(milliseconds(500)));
  log.write(start_all, at(milliseconds(1750)));
  ASSERT_EQ(lines().size(), 2U);
  const auto time_of = [](const std::string& line) { return std::stod(line.substr(1)); };
  EXPECT_NEAR(time_of(lines()[1]) - time_of(lines()[0]), 1.25, 1e-5);
  EXPECT_GT(time_of(lines()[0]), 1.6e9) << "counts from the epoch";
}

TEST_F(FrameLogTest, overwrites_a_log) {
  file.write(old_line);
  EXPECT_EQ(problem(), "");
  EXPECT_EQ(file.text(), "");
}

TEST_F(FrameLogTest, overwrites_an_empty_file) {
  file.write("");
  EXPECT_EQ(problem(), "");
}

TEST_F(FrameLogTest, leaves_alone_what_is_no_log) {
  for (const std::string& content :
       {std::string("a remark\n"), old_line + std::string("and a remark"),
        old_line + std::string(300, '('), std::string(5000, 'x')}) {
    file.write(content);
    EXPECT_EQ(problem(), file.path() + " is not overwritten: it is no log of frames");
    EXPECT_EQ(file.text(), content);
  }
}

TEST_F(FrameLogTest, follows_no_link) {
  std::filesystem::create_symlink("/nowhere", file.path());
  EXPECT_EQ(problem(), file.path() + " is not overwritten: it is a link");
}

TEST_F(FrameLogTest, leaves_alone_what_has_another_name) {
  const std::string other = file.path() + "_other";
  file.write("");
  std::filesystem::create_hard_link(file.path(), other);
  EXPECT_EQ(problem(), file.path() + " is not overwritten: it has another name, a hard link");
  std::filesystem::remove(other);
}

TEST_F(FrameLogTest, goes_to_no_folder) {
  std::filesystem::create_directory(file.path());
  EXPECT_EQ(problem(), file.path() + " is not overwritten: it is no regular file");
}

TEST_F(FrameLogTest, does_not_go_where_the_program_prints) {
  file.write("");
  std::FILE* const printed = std::fopen(file.path().c_str(), "ae");
  ASSERT_NE(printed, nullptr);
  const int kept = ::dup(STDERR_FILENO);
  ::dup2(::fileno(printed), STDERR_FILENO);
  const std::string refusal = problem();
  ::dup2(kept, STDERR_FILENO);
  ::close(kept);
  EXPECT_EQ(std::fclose(printed), 0);
  EXPECT_EQ(refusal, file.path() + " is not overwritten: what the program prints goes there");
}

TEST_F(FrameLogTest, tells_why_there_is_no_file) {
  const auto log = FrameLog::open("/nowhere/log", "can0");
  ASSERT_FALSE(log);
  EXPECT_EQ(log.error(), "cannot write /nowhere/log: No such file or directory");
}

TEST_F(FrameLogTest, is_not_complete_once_the_disk_was_full) {
  const auto opened = FrameLog::open(file.path(), "can0");
  ASSERT_TRUE(opened);
  FrameLog& log = **opened;
  log.write(start_all, at(milliseconds(0)));
  const std::string before = file.text();
  {
    const FullDisk disk;
    log.write(start_all, at(milliseconds(1)));
  }
  EXPECT_FALSE(log.is_complete());
  log.write(start_all, at(milliseconds(2)));
  EXPECT_EQ(file.text(), before) << "after a line that is not whole none follows";
}

TEST_F(FrameLogTest, lines_of_several_threads_are_whole) {
  const auto opened = FrameLog::open(file.path(), "can0");
  ASSERT_TRUE(opened);
  FrameLog& log = **opened;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int count = 0; count < 100; ++count) {
        log.write(start_all, at(milliseconds(count)));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(lines().size(), 400U);
  for (const std::string& line : lines()) {
    EXPECT_TRUE(is_can_log_line(line)) << line;
  }
}

}  // namespace
}  // namespace velmora_can_bridge

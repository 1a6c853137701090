#include "velmora_can_bridge/bridge/frame_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

#include "velmora_can_bridge/traffic/can_log.hpp"

namespace velmora_can_bridge {

using std::chrono::duration_cast;
using std::chrono::microseconds;

namespace {

// No line of a log comes near it.
constexpr std::size_t longest_line = 256;

std::string not_overwritten(const std::string& path, const std::string& reason) {
  return path + " is not overwritten: " + reason;
}

std::string cannot_write(const std::string& path) {
  return "cannot write " + path + ": " + std::generic_category().message(errno);
}

/// Takes the whole lines off the text; false when one of them is none of a log.
bool take_log_lines(std::string& text) {
  std::string_view rest = text;
  for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
    if (!is_can_log_line(rest.substr(0, end))) {
      return false;
    }
    rest.remove_prefix(end + 1);
  }
  text.erase(0, text.size() - rest.size());
  return text.size() <= longest_line;
}

/// Whether the file holds lines of a log of frames and nothing else; it may be empty.
bool is_log(int file) {
  std::array<char, 4096> block{};
  std::string text;
  for (;;) {
    const ssize_t count = ::read(file, block.data(), block.size());
    if (count < 0) {
      return false;
    }
    if (count == 0) {
      return text.empty() || is_can_log_line(text);
    }
    text.append(block.data(), static_cast<std::size_t>(count));
    if (!take_log_lines(text)) {
      return false;
    }
  }
}

bool is_same_file(const struct stat& status, int file) {
  struct stat other {};
  return ::fstat(file, &other) == 0 && other.st_dev == status.st_dev &&
         other.st_ino == status.st_ino;
}

/// Why the file is not one to write to. Asked before it is opened, as opening a device may do
/// something.
std::optional<std::string> hindrance(const std::string& path, const struct stat& status) {
  if (S_ISLNK(status.st_mode)) {
    return not_overwritten(path, "it is a link");
  }
  if (!S_ISREG(status.st_mode)) {
    return not_overwritten(path, "it is no regular file");
  }
  if (status.st_nlink > 1) {
    return not_overwritten(path, "it has another name, a hard link");
  }
  const bool is_printed_to =
      is_same_file(status, STDOUT_FILENO) || is_same_file(status, STDERR_FILENO);
  if (is_printed_to) {
    return not_overwritten(path, "what the program prints goes there");
  }
  return std::nullopt;
}

}  // namespace

Expected<std::unique_ptr<FrameLog>> FrameLog::open(const std::string& path, std::string interface) {
  std::unique_ptr<FrameLog> log(new FrameLog(std::move(interface)));
  if (std::optional<std::string> refusal = log->open_file(path)) {
    return Unexpected{std::move(*refusal)};
  }
  return {std::move(log)};
}

FrameLog::FrameLog(std::string interface) : interface_(std::move(interface)) {}

FrameLog::~FrameLog() {
  if (file_ >= 0) {
    ::close(file_);
  }
}

/// Why there is no file to write to.
std::optional<std::string> FrameLog::open_file(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) {
    if (std::optional<std::string> refusal = hindrance(path, status)) {
      return refusal;
    }
  }
  constexpr mode_t everybody = 0666;
  // Another file may come there meanwhile, so its kind is asked again.
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): how POSIX declares it
  file_ = ::open(path.c_str(),
                 O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                 everybody);
  if (file_ < 0 || ::fstat(file_, &status) != 0) {
    return cannot_write(path);
  }
  if (std::optional<std::string> refusal = hindrance(path, status)) {
    return refusal;
  }
  if (!is_log(file_)) {
    return not_overwritten(path, "it is no log of frames");
  }
  if (::ftruncate(file_, 0) != 0) {
    return cannot_write(path);
  }
  return std::nullopt;
}

void FrameLog::write(const CanFrame& frame, Time time) {
  const auto counted = duration_cast<microseconds>(time.time_since_epoch());
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!epoch_offset_) {
    epoch_offset_ =
        duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()) - counted;
  }
  append(can_log_line(*epoch_offset_ + counted, interface_, frame) + "\n");
}

/// After a line that is not whole none follows.
void FrameLog::append(const std::string& text) {
  std::string_view rest = text;
  while (is_complete_ && !rest.empty()) {
    const ssize_t written = ::write(file_, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      is_complete_ = false;
    }
  }
}

bool FrameLog::is_complete() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return is_complete_;
}

}  // namespace velmora_can_bridge

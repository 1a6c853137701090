// A process that can open nothing more.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace velmora_can_bridge {

/// While it lives no file and no socket can be opened: the limit is what is open already.
class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    const int lowest_free = ::dup(STDIN_FILENO);
    EXPECT_GE(lowest_free, 0);
    ::close(lowest_free);
    const rlimit none{static_cast<rlim_t>(lowest_free), before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors(NoDescriptors&&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  NoDescriptors& operator=(NoDescriptors&&) = delete;
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

}  // namespace velmora_can_bridge

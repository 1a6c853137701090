// A disk that takes nothing more.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace velmora_can_bridge {

/// While it lives files cannot grow, as on a full disk.
class FullDisk {
 public:
  FullDisk() : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit none{0, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &none);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk(FullDisk&&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  FullDisk& operator=(FullDisk&&) = delete;
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    EXPECT_NE(std::signal(SIGXFSZ, handler_), SIG_ERR);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

}  // namespace velmora_can_bridge

#pragma once

#include <sys/resource.h>

#include <csignal>

/// While it lives, files cannot grow beyond `size`, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &old);
    const rlimit limit = {.rlim_cur = size, .rlim_max = old.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
  }

 private:
  rlimit old = {};
  void (*handler)(int);
};

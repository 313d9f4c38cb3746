// A disk that is full: no file of this process grows beyond a limit.
#pragma once

#include <sys/resource.h>

#include <csignal>

namespace ferrox::test {

/// Writes beyond `bytes` fail with EFBIG. For the whole process, so only while nothing else writes.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limited{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limited);
  }
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*const handler_)(int);
};

}  // namespace ferrox::test

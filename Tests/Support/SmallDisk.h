// A disk that is soon full.
#pragma once

#include <sys/mount.h>

#include <filesystem>
#include <utility>

namespace ferrox::test {

/// One megabyte, mounted on a folder that is made for it, for as long as it lives. Only root can mount it.
class SmallDisk {
 public:
  explicit SmallDisk(std::filesystem::path path) : path_(std::move(path)) {
    std::filesystem::create_directory(path_);
    isMounted_ = ::mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=1m") == 0;
  }
  ~SmallDisk() {
    if (isMounted_) ::umount2(path_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool isMounted() const { return isMounted_; }
  const std::filesystem::path& path() const { return path_; }

 private:
  const std::filesystem::path path_;
  bool isMounted_ = false;
};

}  // namespace ferrox::test

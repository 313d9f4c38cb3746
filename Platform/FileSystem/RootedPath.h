// Opening what lies beneath a root directory, by names that come from outside.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

/// A root directory together with the rule that no name may leave it.
/// Thread: any; every operation but one may block on the disk
class RootedPath {
 public:
  /// What becomes of symbolic links below the root.
  enum class Links {
    Follow,  ///< the owner of the root put them there: they are followed wherever they lead
    Refuse,  ///< a name that passes through one fails with ELOOP
  };

  explicit RootedPath(std::string root);

  /// True when `relative` by its letters stays beneath any root: not empty, not absolute, no ".." component,
  /// no NUL.
  static bool isConfined(std::string_view relative);

  /// open(2) beneath the root, always close-on-exec. -1 with errno: ENOENT when the name is not confined,
  /// else what the system says.
  [[nodiscard]] int open(std::string_view relative, int flags, mode_t mode = 0,
                         Links links = Links::Follow) const;
  /// A regular file opened for reading, or -1; never waits for a pipe's other end.
  [[nodiscard]] int openRegularFile(std::string_view relative, Links links = Links::Follow) const;
  /// The same where it takes no waiting for a disk or a network, links followed; -1 also where that cannot be
  /// told, and then says nothing of the file. The one operation for threads that must not block.
  [[nodiscard]] int openCachedRegularFile(std::string_view relative) const;
  /// The size in bytes of a regular file, found without opening it; links are followed.
  [[nodiscard]] std::optional<std::uint64_t> regularFileSize(std::string_view relative) const;

  const std::string& root() const { return root_; }

 private:
  std::string root_;
};

}  // namespace ferrox

#include "Platform/FileSystem/TreeRemoval.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Base/PosixError.h"
#include "Platform/FileSystem/ReplacementFile.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

/// Goes down and up one folder at a time, so that one descriptor is enough for any depth.
class Removal {
 public:
  Removal(FileDescriptor top, const std::function<bool()>& keepGoing)
      : folder_(std::move(top)), keepGoing_(keepGoing) {}

  /// The errno of what could not be removed; 0 when `name` is gone from the folder.
  int remove(const std::string& name) {
    int code = removeEntry(name);
    while (code == 0 && !above_.empty()) code = step();
    return code;
  }

 private:
  struct Level {
    dev_t device = 0;
    ino_t inode = 0;
    std::string name;  ///< of the folder that was gone down into
  };

  /// Removes an entry of the current folder, or goes down into it when it is a folder with something in it.
  int removeEntry(const std::string& name) {
    if (keepGoing_ && !keepGoing_()) return ECANCELED;
    if (::unlinkat(folder_.get(), name.c_str(), 0) == 0 || errno == ENOENT) return 0;
    const int code = errno;
    if (code != EISDIR && code != EPERM) return code;
    if (::unlinkat(folder_.get(), name.c_str(), AT_REMOVEDIR) == 0) return 0;
    if (errno == ENOTDIR) return code;
    return errno == ENOTEMPTY || errno == EEXIST ? goDown(name) : errno;
  }

  int goDown(const std::string& name) {
    struct stat status {};
    if (::fstat(folder_.get(), &status) != 0) return errno;
    FileDescriptor below(
        ::openat(folder_.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!below.isOpen()) return errno;
    above_.push_back({status.st_dev, status.st_ino, name});
    folder_ = std::move(below);
    return 0;
  }

  /// Empties the current folder as far as its first folder that is not empty, which it goes down into; goes
  /// up when there is none.
  int step() {
    const int copy = ::openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, DirectoryCloser> entries(copy < 0 ? nullptr : ::fdopendir(copy));
    if (!entries) return errno;
    const std::size_t depth = above_.size();
    while (const dirent* entry = ::readdir(entries.get())) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (const int code = removeEntry(name); code != 0) return code;
      if (above_.size() != depth) return 0;
    }
    return goUp();
  }

  int goUp() {
    FileDescriptor parent(::openat(folder_.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!parent.isOpen() || ::fstat(parent.get(), &status) != 0) return errno;
    const Level level = std::move(above_.back());
    above_.pop_back();
    // Somebody moved the folder meanwhile: what is above it now is not ours to remove.
    if (status.st_dev != level.device || status.st_ino != level.inode) return ENOENT;
    folder_ = std::move(parent);
    return ::unlinkat(folder_.get(), level.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : errno;
  }

  FileDescriptor folder_;
  std::vector<Level> above_;
  const std::function<bool()>& keepGoing_;
};

}  // namespace

bool removeTree(const std::string& path, FRXError* error, const std::function<bool()>& keepGoing) {
  // With a "/" at the end a link would be followed.
  std::string trimmed = path;
  while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
  const std::string leaf(leafName(trimmed));
  if (leaf.empty() || leaf == "." || leaf == ".." || path.find(char{}) != std::string::npos) {
    setError(error, posixError(EINVAL, path));
    return false;
  }
  const std::string parentPath = trimmed.substr(0, trimmed.size() - leaf.size());
  FileDescriptor parent(
      ::open(parentPath.empty() ? "." : parentPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!parent.isOpen() && errno == ENOENT) return true;
  const int code = parent.isOpen() ? Removal(std::move(parent), keepGoing).remove(leaf) : errno;
  if (code == 0) return true;
  setError(error, posixError(code, path));
  return false;
}

}  // namespace ferrox

#include "Platform/FileSystem/TreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace ferrox {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using DirectoryHandle = std::unique_ptr<DIR, DirectoryCloser>;

struct Entry {
  std::string name;
  bool isDirectory = false;
};

/// A directory that the walk is in: what it is, and which of its entries are still to come.
struct Level {
  dev_t device = 0;
  ino_t inode = 0;
  std::size_t pathLength = 0;  ///< of the relative path up to and including this directory's "/"
  std::vector<Entry> remaining;
};

bool isDirectory(int parent, const dirent& entry) {
  if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
  struct stat status {};
  return ::fstatat(parent, entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

/// Reads a directory whole and closes it, so that a deep tree does not use descriptors up. The entries stand
/// in reverse, the next one last.
std::optional<Level> readLevel(const std::string& path, std::size_t pathLength,
                               const std::vector<Level>& above) {
  const DirectoryHandle directory(::opendir(path.c_str()));
  struct stat status {};
  if (!directory || ::fstat(::dirfd(directory.get()), &status) != 0) return std::nullopt;
  Level level{status.st_dev, status.st_ino, pathLength, {}};
  const bool isLoop = std::any_of(above.begin(), above.end(), [&level](const Level& other) {
    return other.device == level.device && other.inode == level.inode;
  });
  if (isLoop) return std::nullopt;
  while (const dirent* entry = ::readdir(directory.get())) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const bool directoryEntry = isDirectory(::dirfd(directory.get()), *entry);
    level.remaining.push_back({std::move(name), directoryEntry});
  }
  std::sort(level.remaining.begin(), level.remaining.end(),
            [](const Entry& a, const Entry& b) { return a.name > b.name; });
  return level;
}

}  // namespace

bool walkTree(const std::string& root, const TreeVisitor& visit) {
  std::vector<Level> levels;
  auto top = readLevel(root, 0, levels);
  if (!top) return false;
  levels.push_back(std::move(*top));
  std::string path;
  while (!levels.empty()) {
    if (levels.back().remaining.empty()) {
      levels.pop_back();
      continue;
    }
    const Entry entry = std::move(levels.back().remaining.back());
    levels.back().remaining.pop_back();
    path.resize(levels.back().pathLength);
    path += entry.name;
    if (!visit(path, entry.isDirectory)) return false;
    if (!entry.isDirectory) continue;
    path += '/';
    if (auto below = readLevel(std::string(root).append("/").append(path), path.size(), levels))
      levels.push_back(std::move(*below));
  }
  return true;
}

}  // namespace ferrox

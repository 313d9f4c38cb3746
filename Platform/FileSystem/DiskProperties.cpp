#include "Platform/FileSystem/DiskProperties.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>

#include "Platform/Net/FileDescriptor.h"

namespace ferrox {
namespace {

// FAT, exFAT, NTFS (two drivers), CIFS, SMB2, HFS+: the kinds that fold case wherever they are mounted, as
// statfs(2) names them.
constexpr std::array<std::uint32_t, 7> foldingKinds{0x4D44,     0x2011BAB0, 0x5346544E, 0x7366746E,
                                                    0xFF534D42, 0xFE534D42, 0x482B};
// Folders of ext4 and f2fs fold case one by one.
constexpr int foldingFlag = 0x40000000;

FileDescriptor nearestFolder(std::filesystem::path path) {
  while (true) {
    const std::string name = path.empty() ? "." : path.string();
    FileDescriptor folder(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.isOpen() || (errno != ENOENT && errno != ENOTDIR)) return folder;
    if (path.empty() || path == path.parent_path()) return {};
    path = path.parent_path();
  }
}

}  // namespace

std::uint64_t freeBytesOfDisk(const std::string& path) {
  struct statvfs disk {};
  if (::statvfs(path.c_str(), &disk) != 0) return 0;
  return static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
}

bool foldsCaseBelow(const std::string& path) {
  const FileDescriptor folder = nearestFolder(path);
  struct statfs disk {};
  if (!folder.isOpen() || ::fstatfs(folder.get(), &disk) != 0) return false;
  const auto kind = static_cast<std::uint32_t>(disk.f_type);
  if (std::find(foldingKinds.begin(), foldingKinds.end(), kind) != foldingKinds.end()) return true;
  int flags = 0;
  return ::ioctl(folder.get(), FS_IOC_GETFLAGS, &flags) == 0 && (flags & foldingFlag) != 0;
}

}  // namespace ferrox

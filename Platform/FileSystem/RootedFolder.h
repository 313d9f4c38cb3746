// A folder held open, and what may be done beneath it by names that come from outside.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXError.h"
#include "Platform/FileSystem/ReplacementFile.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {

/// No operation leaves the folder or passes through a symbolic link beneath it, whoever puts one there and
/// when; and as the folder is held open, all of them concern the same one even if its path comes to lead
/// elsewhere. Names are relative, with "/" between components; one that is not confined
/// (`RootedPath::isConfined`) fails with ENOENT. Errors are those of `PosixErrorDomain`.
/// Thread: any; every operation may block on the disk
class RootedFolder {
 public:
  /// Makes the folder when there is none, with the folders above it. What leads to it is the host's own
  /// choice and may pass through links; one that is a symbolic link itself fails with ELOOP or ENOTDIR.
  static std::optional<RootedFolder> make(const std::string& path, FRXError* error = nullptr);

  /// Makes the folder `relative`, with the folders above it; those that exist are left as they are.
  [[nodiscard]] bool makeFolders(std::string_view relative, FRXError* error = nullptr) const;
  /// The folder that holds `relative`; empty when it cannot be opened.
  DirectoryHandle openParent(std::string_view relative, FRXError* error = nullptr) const;
  /// The size in bytes of the regular file of that name; nothing when there is none.
  [[nodiscard]] std::optional<std::uint64_t> regularFileSize(std::string_view relative) const;
  /// Makes an empty file in the place of what stands there, which must not be a folder.
  [[nodiscard]] bool makeEmptyFile(std::string_view relative, FRXError* error = nullptr) const;
  /// Gives the file of the first name the second one, in the place of the file that has it.
  [[nodiscard]] bool rename(std::string_view from, std::string_view to, FRXError* error = nullptr) const;
  /// Removes a file.
  [[nodiscard]] bool removeFile(std::string_view relative, FRXError* error = nullptr) const;
  [[nodiscard]] bool setModificationTime(std::string_view relative,
                                         std::chrono::system_clock::time_point time,
                                         FRXError* error = nullptr) const;

  const std::string& path() const { return path_; }
  const DirectoryHandle& handle() const { return root_; }

 private:
  RootedFolder(std::string path, DirectoryHandle root) : path_(std::move(path)), root_(std::move(root)) {}

  [[nodiscard]] bool makeFolder(std::string_view relative) const;
  bool fail(int code, std::string_view relative, FRXError* error) const;

  std::string path_;
  DirectoryHandle root_;
};

}  // namespace ferrox

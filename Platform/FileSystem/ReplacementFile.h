// A file that is written beside its final name and takes its place when it is complete.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {

/// An opened directory (O_PATH is enough), shared by all who write into it.
using DirectoryHandle = std::shared_ptr<const FileDescriptor>;
/// Opens a directory when it is needed; an empty handle, with the error filled, when it cannot.
using DirectoryOpener = std::function<DirectoryHandle(FRXError* error)>;

/// The directory that holds `path`.
FRX_EXPORT DirectoryHandle openParentDirectory(const std::string& path, FRXError* error = nullptr);
/// What follows the last "/" of `path`.
FRX_EXPORT std::string_view leafName(std::string_view path);

/// Until `commit` whatever stands under the final name stays as it is, and without a commit it stays for
/// good: the destructor removes what was written. The temporary name cannot be guessed, and no symbolic link
/// is followed: a link of the final name is replaced, not followed. A file that is replaced hands its
/// permissions on; a new one gets those of the process's mask.
/// Errors are those of `PosixErrorDomain`. Thread: one at a time; every operation may block on the disk
class FRX_EXPORT ReplacementFile {
 public:
  /// Opens the directory of `path` itself. Nothing when the directory or the file cannot be opened, or when
  /// what stands at `path` is no regular file or link.
  static std::optional<ReplacementFile> create(const std::string& path, FRXError* error = nullptr);
  /// In an opened directory; `leaf` is one component.
  static std::optional<ReplacementFile> createIn(DirectoryHandle directory, std::string leaf,
                                                 FRXError* error = nullptr);

  ReplacementFile(ReplacementFile&& other) noexcept;
  ReplacementFile& operator=(ReplacementFile&& other) noexcept;
  ~ReplacementFile() { discard(); }

  /// Reserves the room for a file of this size where the file system can. False when there is none.
  [[nodiscard]] bool preallocate(std::uint64_t size, FRXError* error = nullptr);
  /// Appends all of it, or fails.
  [[nodiscard]] bool write(std::string_view bytes, FRXError* error = nullptr);
  [[nodiscard]] bool setModificationTime(std::chrono::system_clock::time_point time,
                                         FRXError* error = nullptr);
  /// Gives it its final name and closes it. After a failure it is discarded.
  [[nodiscard]] bool commit(FRXError* error = nullptr);
  /// Removes it; does nothing after a commit.
  void discard();

  /// Bytes written so far.
  std::uint64_t size() const { return size_; }
  /// For writing by other means than `write`, which are then not counted.
  int descriptor() const { return file_.get(); }

 private:
  ReplacementFile(DirectoryHandle directory, std::string leaf)
      : directory_(std::move(directory)), leaf_(std::move(leaf)) {}

  bool open(FRXError* error);
  bool canBeReplaced(std::optional<mode_t>& permissions, FRXError* error) const;
  bool fail(int code, FRXError* error) const;

  DirectoryHandle directory_;
  std::string leaf_;
  std::string temporaryName_;
  FileDescriptor file_;
  std::uint64_t size_ = 0;
  std::uint64_t preallocated_ = 0;
};

}  // namespace ferrox

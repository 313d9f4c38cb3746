#include "Classes/Copy/FRXFileJoiningOperation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"
#include "Platform/Base/PosixError.h"
#include "Platform/FileSystem/FileCopy.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

FRXError writeError(int code) {
  const char* const name = ::strerrorname_np(code);
  return downloadError("FRXFileJoiningOperation",
                       "exception joining files: " + std::string(name != nullptr ? name : "error") + " - " +
                           std::generic_category().message(code));
}

/// The files by their paths, or by their last components in one directory.
class Files {
 public:
  explicit Files(DirectoryHandle directory) : directory_(std::move(directory)) {}

  FileDescriptor open(const std::string& path, int flags, FRXError* error) const {
    // A pipe must not keep the queue waiting for its other end.
    flags |= O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (directory_ ? O_NOFOLLOW : 0);
    FileDescriptor file(::openat(base(), nameOf(path), flags, 0666));
    if (!file.isOpen()) setError(error, posixError(errno, path));
    return file;
  }
  bool rename(const std::string& from, const std::string& to) const {
    return ::renameat(base(), nameOf(from), base(), nameOf(to)) == 0;
  }
  bool remove(const std::string& path, FRXError* error) const {
    if (::unlinkat(base(), nameOf(path), 0) == 0) return true;
    setError(error, posixError(errno, path));
    return false;
  }
  std::optional<ReplacementFile> replace(const std::string& path, FRXError* error) const {
    if (!directory_) return ReplacementFile::create(path, error);
    return ReplacementFile::createIn(directory_, std::string(leafName(path)), error);
  }

 private:
  int base() const { return directory_ ? directory_->get() : AT_FDCWD; }
  const char* nameOf(const std::string& path) const {
    return directory_ ? leafName(path).data() : path.c_str();
  }

  const DirectoryHandle directory_;
};

struct Appended {
  std::optional<FRXError> error = std::nullopt;
  bool writeFailed = false;
  bool stopped = false;
  bool isWhole() const { return !error && !stopped; }
};

/// The master, empty; `isNew` says whether there was none.
FileDescriptor openMaster(const Files& files, const std::string& path, bool& isNew, FRXError* error) {
  FileDescriptor master = files.open(path, O_WRONLY | O_CREAT | O_EXCL, nullptr);
  isNew = master.isOpen();
  return isNew ? std::move(master) : files.open(path, O_WRONLY | O_CREAT | O_TRUNC, error);
}

/// Lets a new master and its first piece be one file instead of copying it, where nobody can tell the
/// difference. Empty when they have to stay two.
FileDescriptor turnIntoMaster(const Files& files, const std::string& path, const std::string& masterPath,
                              const FileDescriptor& master) {
  FileDescriptor piece = files.open(path, O_RDWR | O_NOFOLLOW, nullptr);
  struct stat ours {
  }, theirs{};
  if (!piece.isOpen() || ::fstat(piece.get(), &theirs) != 0 || ::fstat(master.get(), &ours) != 0) return {};
  const bool isLikeTheMaster = ours.st_mode == theirs.st_mode && ours.st_uid == theirs.st_uid &&
                               ours.st_gid == theirs.st_gid && ours.st_dev == theirs.st_dev &&
                               ours.st_ino != theirs.st_ino && theirs.st_nlink == 1;
  if (!isLikeTheMaster || ::lseek(piece.get(), 0, SEEK_END) < 0 || !files.rename(path, masterPath)) return {};
  return piece;
}

/// All of the piece, or nothing: what was written of it is taken back.
Appended appendPiece(const Files& files, const std::string& path, int master, const Operation& operation) {
  FRXError error;
  const FileDescriptor piece = files.open(path, O_RDONLY, &error);
  if (!piece.isOpen()) return {.error = error};
  const off_t begin = ::lseek(master, 0, SEEK_CUR);
  const auto result = copyFileContent(piece.get(), master, [&operation] { return !operation.isCancelled(); });
  using Outcome = FileCopyResult::Outcome;
  if (result.outcome == Outcome::Copied) return {};
  if (begin >= 0 && (::ftruncate(master, begin) != 0 || ::lseek(master, begin, SEEK_SET) != begin)) {
    FRX_LOG_WARN("A part of " + path + " could not be taken back.");
  }
  if (result.outcome == Outcome::Stopped) return {.stopped = true};
  if (result.outcome == Outcome::ReadFailed) return {.error = posixError(result.code, path)};
  return {.error = writeError(result.code), .writeFailed = true};
}

}  // namespace

FRXFileJoiningOperation::FRXFileJoiningOperation(std::string masterFilePath)
    : masterFilePath_(std::move(masterFilePath)) {}

void FRXFileJoiningOperation::addFile(std::string path) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.paths.push_back(std::move(path));
}

void FRXFileJoiningOperation::addFiles(const std::vector<std::string>& paths) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.paths.insert(settings_.paths.end(), paths.begin(), paths.end());
}

void FRXFileJoiningOperation::setDirectory(DirectoryOpener open) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.openDirectory = std::move(open);
}

void FRXFileJoiningOperation::setIsResumable(bool resumable) {
  if (!isStartable()) return;
  const MutexLock lock(mutex_);
  settings_.resumable = resumable;
}

std::vector<std::string> FRXFileJoiningOperation::joiningFilesPaths() const { return settings().paths; }

FRXFileJoiningOperation::Settings FRXFileJoiningOperation::settings() const {
  const MutexLock lock(mutex_);
  return settings_;
}

void FRXFileJoiningOperation::start() {
  if (!isStartable()) return finish();
  updateIsExecuting(true);
  join(settings());
  finish();
}

void FRXFileJoiningOperation::join(const Settings& settings) {
  FRXError error;
  DirectoryHandle directory;
  if (settings.openDirectory) directory = settings.openDirectory(&error);
  if (settings.openDirectory && !directory) return masterFailed(settings, error);
  if (settings.resumable) {
    joinBeside(settings, std::move(directory));
  } else {
    joinInPlace(settings, std::move(directory));
  }
}

void FRXFileJoiningOperation::joinInPlace(const Settings& settings, DirectoryHandle directory) {
  FRXError error;
  const Files files(std::move(directory));
  bool isNew = false;
  FileDescriptor master = openMaster(files, masterFilePath_, isNew, &error);
  if (!master.isOpen()) return masterFailed(settings, error);
  for (const std::string& path : settings.paths) {
    if (isCancelled()) break;
    if (std::exchange(isNew, false)) {
      FileDescriptor piece = turnIntoMaster(files, path, masterFilePath_, master);
      if (piece.isOpen()) {
        master = std::move(piece);
        continue;
      }
    }
    const Appended appended = appendPiece(files, path, master.get(), *this);
    if (appended.writeFailed) masterFailed(settings, *appended.error);
    if (appended.error && !appended.writeFailed) setError(appended.error);
    if (!appended.isWhole()) break;
    if (files.remove(path, &error)) continue;
    setError(error);
    break;
  }
  // A cancellation does not wait for a slow disk.
  const auto flushed = flushFileContent(master.get(), [this] { return !isCancelled(); });
  if (flushed.code != 0) masterFailed(settings, posixError(flushed.code, masterFilePath_));
}

void FRXFileJoiningOperation::joinBeside(const Settings& settings, DirectoryHandle directory) {
  FRXError error;
  const Files files(std::move(directory));
  auto master = files.replace(masterFilePath_, &error);
  if (!master) return masterFailed(settings, error);
  for (const std::string& path : settings.paths) {
    const Appended appended = appendPiece(files, path, master->descriptor(), *this);
    if (appended.error) setError(appended.error);
    if (!appended.isWhole()) return;
  }
  const auto flushed = flushFileContent(master->descriptor(), [this] { return !isCancelled(); });
  if (flushed.code != 0) return setError(posixError(flushed.code, masterFilePath_));
  if (flushed.outcome == FileCopyResult::Outcome::Stopped) return;
  if (!master->commit(&error)) return setError(error);
  for (const std::string& path : settings.paths) {
    if (!files.remove(path, &error)) return setError(error);
  }
}

// What goes wrong with the master has no place in `error`, unless the join can be tried again.
void FRXFileJoiningOperation::masterFailed(const Settings& settings, const FRXError& error) {
  if (settings.resumable) return setError(error);
  FRX_LOG_WARN(masterFilePath_ + " was not joined: " + error.localizedDescription);
}

}  // namespace ferrox

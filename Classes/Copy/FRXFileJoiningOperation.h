// Appends piece files to one file, in order, and removes each piece that was appended.
#pragma once

#include <string>
#include <vector>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Platform/Base/Export.h"
#include "Platform/FileSystem/ReplacementFile.h"

namespace ferrox {

/// The work is done inside `start`, on the thread of the queue, by copies within the kernel where it can.
///
/// The master file is created, or emptied, first; then each piece is appended and removed. The first piece
/// that cannot be read or removed ends the join with that error; the master then holds whole pieces only, and
/// the pieces from there on stay. Two failures leave `error` empty by design: a master that cannot be
/// created, and one that cannot be written, which is only logged. Cancelled, it stops before the next piece;
/// a piece that is being appended is taken back, and the flush to the disk is not waited for, so that a large
/// one delays nobody.
/// Thread: any
class FRX_EXPORT FRXFileJoiningOperation final : public FRXConcurrentOperation {
 public:
  explicit FRXFileJoiningOperation(std::string masterFilePath);

  /// What these configure is ignored once the operation runs, has run or is cancelled.
  void addFile(std::string path);
  void addFiles(const std::vector<std::string>& paths);
  /// All files lie in the directory that `open` opens when the join begins: of every path only the last
  /// component is used, and no symbolic link is followed.
  void setDirectory(DirectoryOpener open);
  /// The master takes its name only when it is whole, and pieces are removed only then: whatever fails, the
  /// pieces are there for another attempt and whatever was in the master's place is untouched. Every failure
  /// is then reported in `error`. Off unless set.
  void setIsResumable(bool resumable);

  /// Joins. Finishes at once when it is not startable.
  void start() override;

  const std::string& masterFilePath() const { return masterFilePath_; }
  std::vector<std::string> joiningFilesPaths() const;

 private:
  struct Settings {
    std::vector<std::string> paths;
    DirectoryOpener openDirectory;
    bool resumable = false;
  };

  Settings settings() const;
  void join(const Settings& settings);
  void joinInPlace(const Settings& settings, DirectoryHandle directory);
  void joinBeside(const Settings& settings, DirectoryHandle directory);
  void masterFailed(const Settings& settings, const FRXError& error);

  const std::string masterFilePath_;
  mutable Mutex mutex_;
  Settings settings_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

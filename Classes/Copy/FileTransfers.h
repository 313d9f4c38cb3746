// Downloads the files of a project, whole or in pieces that are joined.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Copy/OperationWindow.h"
#include "Classes/Copy/PieceNames.h"
#include "Classes/Copy/ProjectStructureDocument.h"
#include "Platform/Base/FRXError.h"
#include "Platform/FileSystem/RootedFolder.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

class BackgroundQueue;
class FRXDownloadOperation;
class OperationQueue;

/// How the files are to be had. Members that are borrowed outlive the transfers.
struct FileTransferSettings {
  PlatformServices platform;
  std::shared_ptr<const RootedFolder> destination;
  std::function<std::string(const std::string& path)> urlOf;
  std::function<std::string(const std::string& path)> localPathOf;
  std::function<bool()> isCancelled;
  std::size_t windowWidth = 1;
  double timeout = 0;  ///< seconds
  std::int64_t maxContentLength = -1;
  std::uint64_t resumablePieceLength = 0;
  std::uint64_t maxPieces = 0;
  bool resumes = false;
  bool verifiesSizes = false;
  bool preservesModificationTimes = false;
};

/// Whom the transfers tell. Called on the thread of `run`.
struct FileTransferEvents {
  /// Before a download is queued.
  std::function<void(const std::shared_ptr<FRXDownloadOperation>& download)> willDownload;
  /// It is finished; `reports` tells whether its listener has been called or is about to be.
  std::function<void(const std::shared_ptr<FRXDownloadOperation>& download, bool reports)> didEndDownload;
  /// So many bytes were there already.
  std::function<void(std::uint64_t bytes)> didKeep;
  /// A file stands under its final name.
  std::function<void()> didFinishFile;
};

/// Thread: one, which is blocked
class FileTransfers {
 public:
  FileTransfers(const ProjectStructureDocument& document, const std::vector<std::uint64_t>& sizes,
                OperationQueue& queue, FileTransferSettings settings, FileTransferEvents events);
  ~FileTransfers();

  /// Transfers every file and blocks until everything that was queued for that has ended. The error of the
  /// first operation that failed, in the order in which they were made. A size that cannot be split fails
  /// before anything is downloaded.
  std::optional<FRXError> run();

 private:
  struct SplitFile;
  using Download = std::shared_ptr<FRXDownloadOperation>;

  /// Bytes of each piece of a file of that size; nothing when it is fetched whole.
  std::optional<std::uint64_t> pieceLength(std::uint64_t size) const;
  std::optional<FRXError> unsplittable() const;
  void transfer(std::size_t index);
  bool keepExisting(const std::string& path, std::uint64_t size);
  void makeEmpty(const std::string& path);
  void downloadWhole(const std::string& path, std::uint64_t size);
  void downloadInPieces(const std::string& path, std::uint64_t size, std::uint64_t length);
  void downloadPiece(const std::shared_ptr<SplitFile>& file, std::uint64_t offset);
  void pieceIsThere(const std::shared_ptr<SplitFile>& file);
  void join(const std::shared_ptr<SplitFile>& file);
  void didJoin(const SplitFile& file, const FRXConcurrentOperation& joiner);
  void removePieces(const std::string& path, std::uint64_t size);
  DirectoryOpener folderOf(const std::string& path) const;
  Download makeDownload(const std::string& path, const std::string& localName, std::uint64_t size) const;
  void queueDownload(const Download& download, std::function<void()> onSuccess);
  void note(std::uint64_t number, std::optional<FRXError> error);

  const ProjectStructureDocument& document_;
  const std::vector<std::uint64_t>& sizes_;
  const FileTransferSettings settings_;
  const FileTransferEvents events_;
  const PieceNames pieceNames_;
  std::uint64_t nextNumber_ = 0;
  std::uint64_t failedNumber_ = 0;
  std::optional<FRXError> error_;
  // Outlives the operations in the window.
  const std::unique_ptr<BackgroundQueue> finishing_;
  OperationWindow window_;
};

}  // namespace ferrox

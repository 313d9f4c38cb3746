// Copies a shared project from a peer into a local folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Copy/CopyR24ProjectOperationBuilder.h"
#include "Classes/Copy/CopyR24ProjectOperationDelegate.h"
#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Copy/FRXDownloadOperationDelegate.h"
#include "Platform/Base/Export.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

struct CopyCounters;
class ProjectStructureReader;
struct FileTransferEvents;
struct FileTransferSettings;

/// What a copy asks of its surroundings. Members that are borrowed outlive the copy.
struct FRX_EXPORT CopyR24ProjectOperationParts {
  PlatformServices platform;
  /// The free bytes of the root file system.
  std::function<std::uint64_t()> freeDiskSpace;
  /// Whether the disk takes names that differ only in letter case for the same one, below the nearest
  /// existing folder of that path.
  std::function<bool(const std::string& path)> foldsCase;
  /// Where it is counted: among all copies of the process when there is none.
  std::shared_ptr<CopyCounters> counters = nullptr;

  /// The real ones.
  static CopyR24ProjectOperationParts usual();
};

/// The peer's structure document is fetched and judged; only then the destination is removed and its folders
/// are made, the size of every file is asked for, free space is looked at, and the files are downloaded,
/// those of at least `maxContentLength` bytes in pieces that are joined. The listener hears of progress, of
/// short space, of cancellation and of the end.
///
/// The document is hostile until proven otherwise. One that holds a path which cannot stay beneath the
/// destination, or two that exclude each other, makes the copy fail before anything on disk is touched, and
/// nothing the copy writes passes through a symbolic link beneath the destination.
///
/// After a failure, and after a cancellation, what was copied until then stays, pieces that were not joined
/// included. Make it with `makeWithBuilder`; start it by adding it to an `OperationQueue`, or with `start`.
/// It keeps itself alive until it is finished. Thread: any
class FRX_EXPORT CopyR24ProjectOperation final : public FRXConcurrentOperation,
                                                 public FRXDownloadOperationDelegate {
 public:
  /// What -1 as `maxConcurrentDownloads` means.
  static constexpr int platformConcurrentDownloads = 8;
  /// Size probes under way at once, and how long the peer may keep silent over one.
  static constexpr int concurrentProbes = 6;
  static constexpr double probeTimeout = 5.0;
  /// With `resumes`: how much of a file a broken copy loses at most, in bytes.
  static constexpr std::uint64_t resumablePieceLength = std::uint64_t{256} << 20;
  /// A file is split into so many pieces at most.
  static constexpr std::uint64_t maxPieces = 1'000'000;

  using Configuration = std::function<void(CopyR24ProjectOperationBuilder& builder)>;

  static std::shared_ptr<CopyR24ProjectOperation> makeWithBuilder(
      const Configuration& configure,
      const CopyR24ProjectOperationParts& parts = CopyR24ProjectOperationParts::usual());
  explicit CopyR24ProjectOperation(
      const CopyR24ProjectOperationBuilder& builder,
      CopyR24ProjectOperationParts parts = CopyR24ProjectOperationParts::usual());
  ~CopyR24ProjectOperation() override;

  /// Begins the copy and returns. Everything else happens on other threads.
  void start() override;
  /// Ends what is under way, soon, and tells the listener; every call does that. The copy then completes: as
  /// a success unless an error was stored before or the phase that was under way ends in one. Cancelled while
  /// the structure document is fetched it fails without completing.
  void cancel() override;

  void downloadOperationDidSucceed(FRXDownloadOperation& operation, std::uint64_t sizeInBytes) override;
  void downloadOperationDidFail(FRXDownloadOperation& operation, const FRXError& error) override;

  /// A random UUID of 36 characters.
  const std::string& operationId() const { return operationId_; }
  const std::optional<std::string>& projectDownloadURL() const { return settings_.projectDownloadURL; }
  const std::optional<std::string>& localProjectPath() const { return settings_.localProjectPath; }
  double fileInfoTimeout() const { return settings_.fileInfoTimeout; }
  double fileDownloadTimeout() const { return settings_.fileDownloadTimeout; }
  std::int64_t maxContentLength() const { return settings_.maxContentLength; }
  std::int64_t maxConcurrentDownloads() const { return settings_.maxConcurrentDownloads; }
  bool allowsEmptyFiles() const { return settings_.allowsEmptyFiles; }
  bool resumes() const { return settings_.resumes; }
  bool verifiesSizes() const { return settings_.verifiesSizes; }
  bool preservesModificationTimes() const { return settings_.preservesModificationTimes; }

  /// Free bytes of the root file system; 0 until it was looked at.
  std::uint64_t freeDiskSpace() const { return freeDiskSpace_.load(); }
  void setFreeDiskSpace(std::uint64_t bytes) { freeDiskSpace_ = bytes; }
  /// Sum of all sizes, modulo 2^64; 0 until all are known.
  std::uint64_t projectSize() const { return projectSize_.load(); }
  void setProjectSize(std::uint64_t bytes) { projectSize_ = bytes; }
  /// Bytes written by downloads that have ended; with `resumes` those that were there already count as well.
  std::uint64_t currentProgress() const { return currentProgress_.load(); }
  void setCurrentProgress(std::uint64_t bytes) { currentProgress_ = bytes; }
  /// The same together with what has arrived of the downloads under way, for a progress bar that moves within
  /// a large file. It falls when a download fails.
  std::uint64_t receivedBytes() const;
  /// Files of the project; 0 until its structure is known.
  std::uint64_t fileCount() const { return fileCount_.load(); }
  /// Files that stand under their final name.
  std::uint64_t finishedFileCount() const { return finishedFileCount_.load(); }

  /// Held weakly. `Concrete` has to be the listener's own class.
  template <typename Concrete>
  void setDelegate(const std::shared_ptr<Concrete>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<CopyR24ProjectOperationDelegate> delegate() const { return delegate_.listener(); }

  // Names of a project file with that relative path.

  /// Where it goes.
  std::string generateFileAbsolutePath(const std::string& path) const;
  /// Where a piece of it goes; the extension is "." and the piece's first byte.
  std::string generateTmpFileAbsolutePath(const std::string& path, const std::string& withTmpExtension) const;
  /// Where it is to be had.
  std::string generateFileURL(const std::string& path) const;

 private:
  struct State;

  std::shared_ptr<CopyR24ProjectOperation> self();
  std::optional<FRXError> unusableSetting() const;
  bool mayGoOn() const { return !error() && !isCancelled(); }

  void fetchStructure();
  void run(ProjectStructureReader& reader);
  void runPhases();
  void complete();
  void end();

  void refuseCaseCollision();
  void copyDirectoryStructure();
  void makeDirectories();
  void getFileSizes();
  void checkDiskSpace();
  void issueLowStorageWarning();
  void abort();
  void copyProjectFiles();

  FileTransferSettings transferSettings();
  FileTransferEvents transferEvents(std::uint64_t& reports);
  void addProgress(std::uint64_t bytes, const FRXDownloadOperation* of);
  void didHandleReport();
  void awaitReports(std::uint64_t count);

  const CopyR24ProjectOperationBuilder settings_;
  const CopyR24ProjectOperationParts parts_;
  const std::string operationId_;
  CopyR24ProjectOperationBuilder::DelegateSlot delegate_;
  std::atomic<std::uint64_t> freeDiskSpace_{0};
  std::atomic<std::uint64_t> projectSize_{0};
  std::atomic<std::uint64_t> currentProgress_{0};
  std::atomic<std::uint64_t> fileCount_{0};
  std::atomic<std::uint64_t> finishedFileCount_{0};
  const std::unique_ptr<State> state_;
};

}  // namespace ferrox

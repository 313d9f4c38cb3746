#include "Classes/Copy/FileTransfers.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"
#include "Classes/Copy/FRXDownloadOperation.h"
#include "Classes/Copy/FRXFileJoiningOperation.h"
#include "Platform/FileSystem/PathRules.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {
namespace {

FRXError copyError(const std::string& message) { return downloadError("CopyR24ProjectOperation", message); }

// They write small files, which seldom waits for the disk: few that are busy cost fewer wake-ups than many.
constexpr unsigned finishingThreads = 4;

/// A download that was cancelled is finished without an error too, but has written nothing.
bool didSucceed(const FRXDownloadOperation& download) {
  return !download.error() && (!download.isCancelled() || download.sizeInBytes() > 0);
}

}  // namespace

struct FileTransfers::SplitFile {
  std::string path;
  std::uint64_t size = 0;
  std::uint64_t length = 0;   ///< of every piece but the last
  std::uint64_t number = 0;   ///< of its join among the operations
  std::uint64_t missing = 0;  ///< pieces that are not there yet
  std::optional<std::chrono::system_clock::time_point> modified;

  std::uint64_t lengthOfPiece(std::uint64_t offset) const { return std::min(length, size - offset); }
};

FileTransfers::FileTransfers(const ProjectStructureDocument& document,
                             const std::vector<std::uint64_t>& sizes, OperationQueue& queue,
                             FileTransferSettings settings, FileTransferEvents events)
    : document_(document),
      sizes_(sizes),
      settings_(std::move(settings)),
      events_(std::move(events)),
      pieceNames_(document),
      finishing_(BackgroundQueue::makePool(finishingThreads)),
      window_(queue, settings_.windowWidth, settings_.isCancelled) {}

FileTransfers::~FileTransfers() = default;

std::optional<FRXError> FileTransfers::run() {
  if (auto error = unsplittable()) return error;
  for (std::size_t i = 0; i < sizes_.size() && !settings_.isCancelled(); ++i) transfer(i);
  window_.wait();
  return error_;
}

std::optional<std::uint64_t> FileTransfers::pieceLength(std::uint64_t size) const {
  const auto limit = static_cast<std::uint64_t>(settings_.maxContentLength);
  if (limit <= size) return limit;
  if (settings_.resumes && settings_.resumablePieceLength <= size) return settings_.resumablePieceLength;
  return std::nullopt;
}

std::optional<FRXError> FileTransfers::unsplittable() const {
  // Offsets are signed 64-bit numbers in the range of a request.
  constexpr auto farthest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  for (std::size_t i = 0; i < sizes_.size(); ++i) {
    const auto length = pieceLength(sizes_[i]);
    if (!length) continue;
    if (sizes_[i] > farthest || (sizes_[i] - 1) / *length >= settings_.maxPieces) {
      return copyError("the file " + shownPath(document_.files[i]) + " of " + std::to_string(sizes_[i]) +
                       " bytes cannot be split into pieces of " + std::to_string(*length) + " bytes");
    }
  }
  return std::nullopt;
}

void FileTransfers::transfer(std::size_t index) {
  const std::string path(document_.files[index]);
  const std::uint64_t size = sizes_[index];
  if (settings_.resumes && keepExisting(path, size)) return;
  // Only a download learns the time of an empty file.
  if (size == 0 && !settings_.preservesModificationTimes) return makeEmpty(path);
  if (const auto length = pieceLength(size)) return downloadInPieces(path, size, *length);
  downloadWhole(path, size);
}

bool FileTransfers::keepExisting(const std::string& path, std::uint64_t size) {
  if (settings_.destination->regularFileSize(path) != size) return false;
  removePieces(path, size);
  events_.didFinishFile();
  events_.didKeep(size);
  return true;
}

/// A copy that was killed between putting a joined file into its place and removing its pieces left them.
void FileTransfers::removePieces(const std::string& path, std::uint64_t size) {
  const auto length = pieceLength(size);
  for (std::uint64_t offset = 0; length && offset < size; offset += *length) {
    const std::string piece = pieceNames_.nameOf(path, offset);
    if (settings_.destination->regularFileSize(piece) != std::min(*length, size - offset)) continue;
    if (!settings_.destination->removeFile(piece)) return;
  }
}

void FileTransfers::makeEmpty(const std::string& path) {
  FRXError error;
  if (settings_.destination->makeEmptyFile(path, &error)) return events_.didFinishFile();
  note(nextNumber_++, std::move(error));
}

DirectoryOpener FileTransfers::folderOf(const std::string& path) const {
  return [destination = settings_.destination, path](FRXError* error) {
    return destination->openParent(path, error);
  };
}

FileTransfers::Download FileTransfers::makeDownload(const std::string& path, const std::string& localName,
                                                    std::uint64_t size) const {
  auto download = std::make_shared<FRXDownloadOperation>(
      settings_.urlOf(path), settings_.localPathOf(localName), settings_.timeout, settings_.platform);
  download->setDirectory(folderOf(localName));
  download->setLikelySize(size);
  download->setCompletionQueue(*finishing_);
  download->setStartsOnCurrentThread(true);
  if (settings_.verifiesSizes || settings_.resumes) download->setExpectedSize(size);
  download->setPreservesModificationTime(settings_.preservesModificationTimes);
  return download;
}

void FileTransfers::queueDownload(const Download& download, std::function<void()> onSuccess) {
  events_.willDownload(download);
  const std::uint64_t number = nextNumber_++;
  const auto didEnd = [this, number, download, onSuccess = std::move(onSuccess)](FRXConcurrentOperation&) {
    note(number, download->error());
    const bool succeeded = didSucceed(*download);
    events_.didEndDownload(download, succeeded || download->error());
    if (succeeded) onSuccess();
  };
  window_.add(download, didEnd, OperationWindow::Failure::CancelsOthers);
}

void FileTransfers::downloadWhole(const std::string& path, std::uint64_t size) {
  queueDownload(makeDownload(path, path, size), [this] { events_.didFinishFile(); });
}

void FileTransfers::downloadInPieces(const std::string& path, std::uint64_t size, std::uint64_t length) {
  auto file = std::make_shared<SplitFile>(SplitFile{path, size, length, nextNumber_++, 0, std::nullopt});
  file->missing = (size - 1) / length + 1;
  std::uint64_t offset = 0;
  while (offset < size && !settings_.isCancelled()) {
    downloadPiece(file, offset);
    if (size - offset <= length) break;
    offset += length;
  }
}

void FileTransfers::downloadPiece(const std::shared_ptr<SplitFile>& file, std::uint64_t offset) {
  const std::string name = pieceNames_.nameOf(file->path, offset);
  const std::uint64_t length = file->lengthOfPiece(offset);
  if (settings_.resumes && settings_.destination->regularFileSize(name) == length) {
    events_.didKeep(length);
    return pieceIsThere(file);
  }
  const Download download = makeDownload(file->path, name, length);
  // The last one asks for more than there is, as the peer may.
  download->setContentRange(static_cast<std::int64_t>(offset), static_cast<std::int64_t>(file->length));
  queueDownload(download, [this, file, download] {
    file->modified = download->lastModified();
    pieceIsThere(file);
  });
}

void FileTransfers::pieceIsThere(const std::shared_ptr<SplitFile>& file) {
  if (--file->missing == 0 && !settings_.isCancelled()) join(file);
}

void FileTransfers::join(const std::shared_ptr<SplitFile>& file) {
  const auto joiner = std::make_shared<FRXFileJoiningOperation>(settings_.localPathOf(file->path));
  joiner->setDirectory(folderOf(file->path));
  joiner->setIsResumable(settings_.resumes || settings_.verifiesSizes);
  for (std::uint64_t offset = 0; offset < file->size; offset += file->length) {
    joiner->addFile(settings_.localPathOf(pieceNames_.nameOf(file->path, offset)));
    if (file->size - offset <= file->length) break;
  }
  window_.add(joiner, [this, file](FRXConcurrentOperation& operation) { didJoin(*file, operation); });
}

void FileTransfers::didJoin(const SplitFile& file, const FRXConcurrentOperation& joiner) {
  if (auto error = joiner.error()) return note(file.number, std::move(error));
  const auto size = settings_.destination->regularFileSize(file.path);
  if (size != file.size) {
    if (joiner.isCancelled() || !settings_.verifiesSizes) return;
    return note(file.number, copyError("the joined file " + shownPath(file.path) + " has " +
                                       std::to_string(size.value_or(0)) + " instead of " +
                                       std::to_string(file.size) + " bytes"));
  }
  FRXError error;
  if (settings_.preservesModificationTimes && file.modified &&
      !settings_.destination->setModificationTime(file.path, *file.modified, &error)) {
    return note(file.number, std::move(error));
  }
  events_.didFinishFile();
}

void FileTransfers::note(std::uint64_t number, std::optional<FRXError> error) {
  if (!error || (error_ && failedNumber_ < number)) return;
  error_ = std::move(error);
  failedNumber_ = number;
}

}  // namespace ferrox

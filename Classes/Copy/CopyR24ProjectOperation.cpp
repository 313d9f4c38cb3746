#include "Classes/Copy/CopyR24ProjectOperation.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <set>
#include <utility>
#include <vector>

#include "Classes/Copy/CopyCounters.h"
#include "Classes/Copy/CopyThreads.h"
#include "Classes/Copy/DownloadErrors.h"
#include "Classes/Copy/FRXDownloadOperation.h"
#include "Classes/Copy/FileSizeProbes.h"
#include "Classes/Copy/FileTransfers.h"
#include "Classes/Copy/LowStorageDecision.h"
#include "Classes/Copy/ProjectStructureDocument.h"
#include "Classes/Copy/ProjectStructureRequest.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/Base/JsonStream.h"
#include "Platform/FileSystem/DiskProperties.h"
#include "Platform/FileSystem/PathRules.h"
#include "Platform/FileSystem/RootedFolder.h"
#include "Platform/FileSystem/TreeRemoval.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/Queues/OperationQueue.h"

namespace ferrox {
namespace {

using Selectors = CopyR24ProjectOperationDelegate::RespondingSelectors;

FRXError copyError(const std::string& message) { return downloadError("CopyR24ProjectOperation", message); }

CopyR24ProjectOperationBuilder withoutDelegate(CopyR24ProjectOperationBuilder builder) {
  builder.setDelegate(nullptr);
  return builder;
}

/// With a "/" at its end a link would be followed.
std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string folderAbove(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

CopyR24ProjectOperationParts CopyR24ProjectOperationParts::usual() {
  return {PlatformServices::shared(), [] { return freeBytesOfDisk("/"); },
          [](const std::string& path) { return foldsCaseBelow(path); }};
}

struct FRX_HIDDEN CopyR24ProjectOperation::State {
  explicit State(std::shared_ptr<CopyCounters> given)
      : counters(given ? std::move(given) : CopyCounters::shared()) {}

  const std::shared_ptr<CopyCounters> counters;
  /// By the host, before anything had failed.
  std::atomic<bool> isGivenUp{false};
  OperationQueue queue{copyStepThreads()};
  ProjectStructureRequest request;

  // Of the thread that runs the phases.
  ProjectStructureDocument document;
  std::vector<std::uint64_t> sizes;
  std::shared_ptr<const RootedFolder> destination;

  Mutex mutex;
  std::condition_variable_any changed;
  std::uint64_t handledReports FRX_GUARDED_BY(mutex) = 0;
  std::set<std::shared_ptr<const FRXDownloadOperation>, std::owner_less<>> active FRX_GUARDED_BY(mutex);
};

std::shared_ptr<CopyR24ProjectOperation> CopyR24ProjectOperation::makeWithBuilder(
    const Configuration& configure, const CopyR24ProjectOperationParts& parts) {
  CopyR24ProjectOperationBuilder builder;
  if (configure) configure(builder);
  return std::make_shared<CopyR24ProjectOperation>(builder, parts);
}

CopyR24ProjectOperation::CopyR24ProjectOperation(const CopyR24ProjectOperationBuilder& builder,
                                                 CopyR24ProjectOperationParts parts)
    : settings_(withoutDelegate(builder)),
      parts_(std::move(parts)),
      operationId_(text::randomUUID()),
      state_(std::make_unique<State>(parts_.counters)) {
  builder.attachDelegate(delegate_);
}

CopyR24ProjectOperation::~CopyR24ProjectOperation() = default;

std::shared_ptr<CopyR24ProjectOperation> CopyR24ProjectOperation::self() {
  return std::static_pointer_cast<CopyR24ProjectOperation>(shared_from_this());
}

std::string CopyR24ProjectOperation::generateFileAbsolutePath(const std::string& path) const {
  return settings_.localProjectPath.value_or("") + "/" + path;
}

std::string CopyR24ProjectOperation::generateTmpFileAbsolutePath(const std::string& path,
                                                                 const std::string& withTmpExtension) const {
  return generateFileAbsolutePath(path) + withTmpExtension;
}

std::string CopyR24ProjectOperation::generateFileURL(const std::string& path) const {
  return settings_.projectDownloadURL.value_or("") + "/files/" +
         FRXUtilities::urlEncodePathComponent(path).value_or("");
}

void CopyR24ProjectOperation::start() {
  if (!isStartable()) return;
  updateIsExecuting(true);
  state_->counters->started.add();
  if (auto error = unusableSetting()) {
    setError(std::move(error));
    copyThreads().post([me = self()] { me->complete(); });
    return;
  }
  fetchStructure();
}

void CopyR24ProjectOperation::cancel() {
  if (!error()) state_->isGivenUp = true;
  FRXConcurrentOperation::cancel();
  state_->request.cancel();
  state_->queue.cancelAllOperations();
  delegate_.notify(&Selectors::wasCancelled, [this](auto& listener) {
    listener.copyOperationWasCancelled(operationId_, currentProgress());
  });
}

std::optional<FRXError> CopyR24ProjectOperation::unusableSetting() const {
  if (settings_.maxContentLength == 0) return copyError("maxContentLength must not be 0");
  if (settings_.maxConcurrentDownloads == 0 || settings_.maxConcurrentDownloads < -1) {
    return copyError("maxConcurrentDownloads must be greater than 0, or -1");
  }
  // What cannot be the destination must not be removed to make room for it.
  const std::string path = withoutTrailingSlashes(settings_.localProjectPath.value_or(""));
  const std::string leaf = path.substr(path.rfind('/') + 1);
  if (leaf.empty() || leaf == "." || leaf == ".." || path.find('\0') != std::string::npos) {
    return copyError("localProjectPath " + shownPath(path) + " cannot be a project's folder");
  }
  return std::nullopt;
}

void CopyR24ProjectOperation::fetchStructure() {
  const std::size_t used = settings_.localProjectPath->size() + 1;
  const ProjectStructureDocumentLimits limits{settings_.maxStructureBytes, settings_.maxStructureEntries,
                                              longestPath - std::min(longestPath, used)};
  state_->request.send(*parts_.platform.httpClient, settings_.projectDownloadURL.value_or(""),
                       settings_.structureTimeout, limits,
                       [me = self()](ProjectStructureRequest::Result result) {
                         if (result.error) {
                           me->setError(std::move(result.error));
                           return me->end();
                         }
                         copyThreads().post([me, reader = std::move(result.reader)] { me->run(*reader); });
                       });
}

void CopyR24ProjectOperation::run(ProjectStructureReader& reader) {
  try {
    if (auto document = reader.finish()) {
      state_->document = std::move(*document);
      fileCount_ = state_->document.files.size();
      runPhases();
    } else {
      setError(reader.error());
      // What is no JSON counts as not having been had; a document that was refused is another matter.
      if (reader.error()->domain == JsonErrorDomain) return end();
    }
  } catch (const std::exception& exception) {
    setError(copyError(std::string("the copy broke off: ") + exception.what()));
  }
  complete();
}

void CopyR24ProjectOperation::runPhases() {
  if (mayGoOn()) refuseCaseCollision();
  if (mayGoOn()) copyDirectoryStructure();
  if (mayGoOn()) getFileSizes();
  if (mayGoOn()) checkDiskSpace();
}

void CopyR24ProjectOperation::complete() {
  try {
    delegate_.notify(&Selectors::didComplete, [this](auto& listener) {
      const auto failure = error();
      listener.copyOperationDidComplete(operationId_, !failure, failure);
    });
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A listener of a project copy failed: ") + exception.what());
  }
  end();
}

void CopyR24ProjectOperation::end() {
  CopyCounters& counters = *state_->counters;
  (state_->isGivenUp ? counters.cancelled : error() ? counters.failed : counters.succeeded).add();
  counters.ended.add();
  finish();
}

void CopyR24ProjectOperation::refuseCaseCollision() {
  const auto collision = caseCollision(state_->document);
  if (!collision) return;
  const std::string names = shownPath(collision->first) + " and " + shownPath(collision->second);
  const std::string path = withoutTrailingSlashes(*settings_.localProjectPath);
  const bool collides = parts_.foldsCase && parts_.foldsCase(settings_.resumes ? path : folderAbove(path));
  if (collides || settings_.refusesCaseCollisions) {
    return setError(
        copyError("the project's paths " + names + " are the same where letter case is not told apart"));
  }
  FRX_LOG_WARN("A copied project has paths that differ in letter case only: " + names);
}

void CopyR24ProjectOperation::copyDirectoryStructure() {
  const std::string path = withoutTrailingSlashes(*settings_.localProjectPath);
  FRXError error;
  if (!settings_.resumes && !removeTree(path, &error, [this] { return !isCancelled(); })) {
    // Broken off by a cancellation, which is no failure.
    if (!isCancelled()) setError(error);
    return;
  }
  auto destination = RootedFolder::make(path, &error);
  if (!destination) return setError(error);
  state_->destination = std::make_shared<const RootedFolder>(std::move(*destination));
  makeDirectories();
}

void CopyR24ProjectOperation::makeDirectories() {
  FRXError error;
  const ProjectStructureDocument& document = state_->document;
  for (std::size_t i = 0; i < document.directories.size() && !isCancelled(); ++i) {
    if (!state_->destination->makeFolders(document.directories[i], &error)) return setError(error);
  }
  // Peers list the folders of their files; one that does not is no reason to fail.
  std::string_view made;
  for (std::size_t i = 0; i < document.files.size() && !isCancelled(); ++i) {
    const std::string_view file = document.files[i];
    const std::size_t slash = file.rfind('/');
    if (slash == std::string_view::npos || file.substr(0, slash) == made) continue;
    made = file.substr(0, slash);
    if (!state_->destination->makeFolders(made, &error)) return setError(error);
  }
}

void CopyR24ProjectOperation::getFileSizes() {
  state_->queue.setMaxConcurrentOperationCount(concurrentProbes);
  FRXError error;
  auto sizes =
      probeFileSizes(state_->document.files, state_->queue,
                     {parts_.platform, [this](const std::string& path) { return generateFileURL(path); },
                      [this] { return isCancelled(); }, probeTimeout, settings_.allowsEmptyFiles},
                     error);
  if (!sizes) return setError(error);
  state_->sizes = std::move(*sizes);
}

void CopyR24ProjectOperation::checkDiskSpace() {
  const std::uint64_t free = parts_.freeDiskSpace();
  std::uint64_t size = 0;
  for (const std::uint64_t fileSize : state_->sizes) size += fileSize;
  freeDiskSpace_ = free;
  projectSize_ = size;
  // Wraps around where the project is larger than what is free: then there is no warning, by design.
  if (free - size < 2 * size) {
    issueLowStorageWarning();
  } else {
    copyProjectFiles();
  }
}

void CopyR24ProjectOperation::issueLowStorageWarning() {
  const auto decision = std::make_shared<LowStorageDecision>();
  const std::weak_ptr<CopyR24ProjectOperation> weak = self();
  const auto deciding = [decision, weak](void (CopyR24ProjectOperation::*act)()) {
    return [decision, weak, act] {
      const auto me = weak.lock();
      if (!me || !decision->begin()) return;
      try {
        (me.get()->*act)();
      } catch (const std::exception& exception) {
        me->setError(copyError(std::string("the copy broke off: ") + exception.what()));
      }
      decision->end();
    };
  };
  try {
    delegate_.notify(&Selectors::didIssueLowStorageWarning, [&](auto& listener) {
      listener.copyOperationDidIssueLowStorageWarning(operationId_,
                                                      deciding(&CopyR24ProjectOperation::copyProjectFiles),
                                                      deciding(&CopyR24ProjectOperation::abort));
    });
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A listener of a project copy failed: ") + exception.what());
  }
  decision->close();
}

void CopyR24ProjectOperation::abort() {
  setError(copyError("copy project operation cancelled by caller due to low storage warning"));
}

FileTransferSettings CopyR24ProjectOperation::transferSettings() {
  const auto limit = static_cast<std::size_t>(state_->queue.maxConcurrentOperationCount());
  FileTransferSettings settings;
  settings.platform = parts_.platform;
  settings.destination = state_->destination;
  settings.urlOf = [this](const std::string& path) { return generateFileURL(path); };
  settings.localPathOf = [this](const std::string& path) { return generateFileAbsolutePath(path); };
  settings.isCancelled = [this] { return isCancelled(); };
  // So many more that the queue never runs dry while those that ended are handled.
  settings.windowWidth = std::max<std::size_t>(64, 2 * limit + 8);
  settings.timeout = settings_.fileDownloadTimeout;
  settings.maxContentLength = settings_.maxContentLength;
  settings.resumablePieceLength = resumablePieceLength;
  settings.maxPieces = maxPieces;
  settings.resumes = settings_.resumes;
  settings.verifiesSizes = settings_.verifiesSizes;
  settings.preservesModificationTimes = settings_.preservesModificationTimes;
  return settings;
}

FileTransferEvents CopyR24ProjectOperation::transferEvents(std::uint64_t& reports) {
  FileTransferEvents events;
  events.willDownload = [this](const std::shared_ptr<FRXDownloadOperation>& download) {
    download->setDelegate(self());
    const MutexLock lock(state_->mutex);
    state_->active.insert(download);
  };
  events.didEndDownload = [this, &reports](const std::shared_ptr<FRXDownloadOperation>& download,
                                           bool reported) {
    if (reported) {
      ++reports;
    } else {
      const MutexLock lock(state_->mutex);
      state_->active.erase(download);
    }
  };
  events.didKeep = [this](std::uint64_t bytes) { addProgress(bytes, nullptr); };
  events.didFinishFile = [this] {
    ++finishedFileCount_;
    state_->counters->files.add();
  };
  return events;
}

void CopyR24ProjectOperation::copyProjectFiles() {
  // The client sends no more than that many requests to one host at once.
  constexpr std::int64_t most = 1024;
  const std::int64_t wanted = settings_.maxConcurrentDownloads;
  state_->queue.setMaxConcurrentOperationCount(wanted < 0 ? platformConcurrentDownloads
                                                          : static_cast<int>(std::min(wanted, most)));
  std::uint64_t reports = 0;
  FileTransfers transfers(state_->document, state_->sizes, state_->queue, transferSettings(),
                          transferEvents(reports));
  auto error = transfers.run();
  // A download is finished before it tells us so; the end of the copy must not overtake that.
  awaitReports(reports);
  if (error) setError(std::move(error));
}

void CopyR24ProjectOperation::addProgress(std::uint64_t bytes, const FRXDownloadOperation* of) {
  {
    const MutexLock lock(state_->mutex);
    const auto download = std::find_if(state_->active.begin(), state_->active.end(),
                                       [of](const auto& candidate) { return candidate.get() == of; });
    if (download != state_->active.end()) state_->active.erase(download);
    currentProgress_ += bytes;
  }
  delegate_.notify(&Selectors::didUpdateProgress, [this](auto& listener) {
    listener.copyOperationDidUpdateProgress(operationId_, currentProgress(), projectSize());
  });
}

void CopyR24ProjectOperation::downloadOperationDidSucceed(FRXDownloadOperation& operation,
                                                          std::uint64_t sizeInBytes) {
  state_->counters->bytes.add(sizeInBytes);
  try {
    addProgress(sizeInBytes, &operation);
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A listener of a project copy failed: ") + exception.what());
  }
  didHandleReport();
}

void CopyR24ProjectOperation::downloadOperationDidFail(FRXDownloadOperation& operation,
                                                       const FRXError& error) {
  setError(error);
  {
    const MutexLock lock(state_->mutex);
    std::erase_if(state_->active, [&](const auto& candidate) { return candidate.get() == &operation; });
  }
  try {
    cancel();
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A listener of a project copy failed: ") + exception.what());
  }
  didHandleReport();
}

void CopyR24ProjectOperation::didHandleReport() {
  const MutexLock lock(state_->mutex);
  ++state_->handledReports;
  state_->changed.notify_all();
}

void CopyR24ProjectOperation::awaitReports(std::uint64_t count) {
  const MutexLock lock(state_->mutex);
  while (state_->handledReports < count) state_->changed.wait(state_->mutex);
}

std::uint64_t CopyR24ProjectOperation::receivedBytes() const {
  const MutexLock lock(state_->mutex);
  std::uint64_t bytes = currentProgress_;
  for (const auto& download : state_->active) bytes += download->bytesReceived();
  return bytes;
}

}  // namespace ferrox

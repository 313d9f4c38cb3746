#include "Classes/Copy/StreamedFileDownload.h"

#include <cassert>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {
namespace {

constexpr int firstSuccess = 200;
constexpr int lastSuccess = 299;
constexpr int notFound = 404;

}  // namespace

StreamedFileDownload::StreamedFileDownload(std::string_view className, std::string fromURL,
                                           std::string toPath, double timeout,
                                           const PlatformServices& platform)
    : platform_(platform),
      className_(className),
      fromURL_(std::move(fromURL)),
      toPath_(std::move(toPath)),
      timeout_(transferTimeout(timeout)) {
  request_.url = fromURL_;
  request_.inactivityTimeout = transferInactivityTimeout(timeout_);
}

StreamedFileDownload::~StreamedFileDownload() { abandonTransfer(); }

void StreamedFileDownload::abandonTransfer() {
  if (const auto task = std::exchange(transferTask_, nullptr)) task->abandon();
}

void StreamedFileDownload::beginTransfer(const std::optional<std::string>& range) {
  assert(mainLoop().isCurrentThread());
  abandonTransfer();
  request_.headers.clear();
  if (range) request_.headers.emplace_back("Range", *range);
  transferTask_ = DataTask::start(*platform_.httpClient, mainLoop(), request_, *this);
}

void StreamedFileDownload::finish() {
  if (transferTask_) transferTask_->cancel();
  closeOutFile();
  executing_ = false;
}

void StreamedFileDownload::finishWithErrorMessage(std::string_view message, int code) {
  const FRXError error = downloadError(className_, message, code);
  error_ = error;
  finish();
  transferDidFail(error);
}

void StreamedFileDownload::dataTaskDidReceiveResponse(DataTask& task, const HTTPClientResponse& response) {
  responseStatus_ = response.status;
  if (response.status >= firstSuccess && response.status <= lastSuccess) {
    return transferWasAccepted(response);
  }
  task.cancel();
  finishWithErrorMessage("http call failed with status code " + std::to_string(response.status),
                         response.status == notFound ? errorFileNotFound : errorFailed);
}

void StreamedFileDownload::dataTaskDidReceiveData(DataTask& task, std::optional<std::string_view> data) {
  if (task.state() != DataTask::State::Running) {
    FRX_LOG_VERBOSE("Transfer task has been canceled or has completed.");
    return;
  }
  if (!data) {
    FRX_LOG_WARN("Data parameter was unexpectedly nil");
    return dataWasMissing();
  }
  const auto alive = life();
  const bool isWanted = listenerWants(*data);
  // The listener may have ended or replaced the transfer, or have let go of this object.
  if (!isWanted || alive.expired() || task.state() != DataTask::State::Running) return;
  receiveBlock(*data);
}

void StreamedFileDownload::dataTaskDidComplete(DataTask&, const std::optional<FRXError>& error) {
  if (error_ && error_->code == errorFileNotFound) {
    return finishWithErrorMessage("HTTP 404 error: File not Found", errorFileNotFound);
  }
  if (error && error->code != HTTPClientErrorCancelled) {
    error_ = error;
    finish();
    return transferDidFail(*error);
  }
  transferDidSucceed();
}

bool StreamedFileDownload::openOutFile(std::size_t length) {
  UpdateFile::Problem problem;
  outFile_ = UpdateFile::open(toPath_, problem);
  if (outFile_) return true;
  if (problem.whileCreating) {
    failLocally("Could not create a file with default attributes at " + toPath_);
  } else {
    writingFailed(length, problem.reason);
  }
  return false;
}

void StreamedFileDownload::writingFailed(std::size_t length, const std::string& reason) {
  failLocally("Error attempting to write " + std::to_string(length) + " bytes to " + toPath_ + ": " + reason);
}

// The completion of the cancelled transfer would report a success, of a file that lacks bytes.
void StreamedFileDownload::failLocally(const std::string& message) {
  abandonTransfer();
  finishWithErrorMessage(message);
}

}  // namespace ferrox

#include "Classes/Copy/FRXAtomDownloadOperation.h"

#include <optional>
#include <utility>

#include "Classes/Copy/AtomWalk.h"
#include "Platform/Log/Log.h"

namespace ferrox {

FRXAtomDownloadOperation::FRXAtomDownloadOperation(std::string fromURL, std::string toPath, double timeout,
                                                   const PlatformServices& platform)
    : StreamedFileDownload("FRXAtomDownloadOperation", std::move(fromURL), std::move(toPath), timeout,
                           platform) {}

void FRXAtomDownloadOperation::start() {
  if (isExecuting()) {
    FRX_LOG_WARN("This object is not in a startable state.");
    return;
  }
  setIsExecuting(true);
  downloadFile();
}

void FRXAtomDownloadOperation::downloadFile() {
  std::optional<std::string> range;
  if (contentPosition_ != 0) range = "bytes=" + std::to_string(contentPosition_) + "-";
  beginTransfer(range);
}

bool FRXAtomDownloadOperation::listenerWants(std::string_view block) {
  bool wants = true;
  delegate_.notify(&Selectors::receivedData, [this, &wants, block](auto& listener) {
    wants = listener.downloadOperationReceivedData(*this, block);
  });
  return wants;
}

void FRXAtomDownloadOperation::receiveBlock(std::string_view block) {
  const AtomWalk walk = AtomWalk::through(block, contentPosition_, nextAtomPosition_);
  if (walk.foundContainer) {
    FRX_LOG_WARN("It looks like there is a QT Atom Container at the root level of this file.");
  }
  if (outFile() == nullptr && !openOutFile(walk.keep)) return;
  if (const auto problem = outFile()->append(block.substr(0, walk.keep))) {
    return writingFailed(walk.keep, *problem);
  }
  contentPosition_ += walk.keep;
  nextAtomPosition_ = walk.nextAtomPosition;
  if (walk.stops) finish();
}

void FRXAtomDownloadOperation::transferDidSucceed() {
  sizeInBytes_ = sizeOfFile();
  finish();
  delegate_.notify(&Selectors::didSucceed,
                   [this](auto& listener) { listener.downloadOperationDidSucceed(*this, sizeInBytes_); });
}

void FRXAtomDownloadOperation::transferDidFail(const FRXError& error) {
  delegate_.notify(&Selectors::didFail,
                   [this, &error](auto& listener) { listener.downloadOperationDidFail(*this, error); });
}

}  // namespace ferrox

#include "Apps/ferrox/Copy/CopyJob.h"

#include <algorithm>
#include <utility>

#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {

/// Hears the copy on its threads and passes on to the main one. The end is seen by the operation's flag: a
/// copy that finds no project tells its listener nothing.
class CopyJob::Bridge final : public CopyR24ProjectOperationDelegate, public OperationObserver {
 public:
  explicit Bridge(std::weak_ptr<CopyJob> job) : job_(std::move(job)) {}

  /// Set before the copy starts.
  CopyJob::Decision decision;

  void copyOperationDidIssueLowStorageWarning(const std::string&, const Decision& onContinue,
                                              const Decision& onAbort) override {
    const auto copy = operation.lock();
    const bool goesOn = copy && decision(*copy);
    tell([goesOn](CopyJob& job) { job.listener_.copyMetLowStorage(job, goesOn); });
    return goesOn ? onContinue() : onAbort();
  }
  void copyOperationDidUpdateProgress(const std::string&, std::uint64_t bytes,
                                      std::uint64_t totalBytes) override {
    tell([bytes, totalBytes](CopyJob& job) {
      // Downloads that end at once are told of in whatever order; a reader should not see it fall.
      job.progress_ = std::max(job.progress_, bytes);
      job.listener_.copyProgressed(job, job.progress_, totalBytes);
    });
  }
  void copyOperationWasCancelled(const std::string&, std::uint64_t) override {
    tell([](CopyJob& job) { job.listener_.copyCancelled(job); });
  }
  void operationWillChangeValue(Operation&, std::string_view) override {}
  void operationDidChangeValue(Operation& changed, std::string_view key) override {
    if (key == "isFinished" && changed.isFinished()) tell([](CopyJob& job) { job.ended(); });
  }

  std::weak_ptr<const CopyR24ProjectOperation> operation;

 private:
  void tell(std::function<void(CopyJob&)> event) const {
    RunLoop::main().post([weak = job_, event = std::move(event)] {
      if (const auto job = weak.lock()) event(*job);
    });
  }

  const std::weak_ptr<CopyJob> job_;
};

std::shared_ptr<CopyJob> CopyJob::make(const CopyRequest& request, CopyListener& listener) {
  std::shared_ptr<CopyJob> job(new CopyJob(request, listener));
  job->attach();
  return job;
}

CopyJob::CopyJob(const CopyRequest& request, CopyListener& listener)
    : request_(request),
      listener_(listener),
      decision_([goesOn = request.onLowStorage == OnLowStorage::Continue](const auto&) { return goesOn; }),
      operation_(
          CopyR24ProjectOperation::makeWithBuilder([&request](CopyR24ProjectOperationBuilder& builder) {
            builder.projectDownloadURL = request.url;
            builder.localProjectPath = request.destination;
            builder.maxContentLength = request.maxContentLength;
            builder.maxConcurrentDownloads = request.maxConcurrentDownloads;
            builder.fileDownloadTimeout = request.fileDownloadTimeout;
            builder.allowsEmptyFiles = request.allowsEmptyFiles;
            builder.resumes = request.resumes;
            builder.verifiesSizes = request.verifiesSizes;
            builder.preservesModificationTimes = request.preservesModificationTimes;
          })) {}

CopyJob::~CopyJob() {
  if (!ended_) operation_->cancel();
}

void CopyJob::attach() {
  bridge_ = std::make_shared<Bridge>(weak_from_this());
  bridge_->operation = operation_;
  operation_->setDelegate(bridge_);
  operation_->addObserver(bridge_);
}

void CopyJob::start() {
  bridge_->decision = decision_;
  operation_->start();
}

void CopyJob::cancel() {
  if (ended_) return;
  cancelled_ = true;
  operation_->cancel();
}

void CopyJob::ended() {
  if (std::exchange(ended_, true)) return;
  listener_.copyEnded(*this, operation_->error());
}

}  // namespace ferrox::command

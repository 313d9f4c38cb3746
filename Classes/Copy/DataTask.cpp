#include "Classes/Copy/DataTask.h"

#include <deque>
#include <string>
#include <utility>

#include "Platform/Base/Mutex.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox {

/// Between the thread that moves the bytes and the main thread. Thread: any
class FRX_HIDDEN DataTask::WaitingBlocks {
 public:
  /// Whether more may come; if not, `take` says when to ask again.
  bool hasRoom() {
    const MutexLock lock(mutex_);
    isHeldUp_ = size_ >= maxWaitingBytes;
    return !isHeldUp_;
  }

  /// True when a new block was begun, which then has to be taken once.
  bool add(std::string_view piece) {
    const MutexLock lock(mutex_);
    size_ += piece.size();
    if (!blocks_.empty() && blocks_.back().size() + piece.size() <= maxBlockSize) {
      blocks_.back().append(piece);
      return false;
    }
    blocks_.emplace_back(piece);
    return true;
  }

  struct Taken {
    std::string block;
    /// Whether the transfer is held up and should go on.
    bool resumes = false;
  };
  Taken take() {
    const MutexLock lock(mutex_);
    Taken taken{std::move(blocks_.front())};
    blocks_.pop_front();
    size_ -= taken.block.size();
    taken.resumes = isHeldUp_ && size_ <= maxWaitingBytes / 2;
    if (taken.resumes) isHeldUp_ = false;
    return taken;
  }

 private:
  Mutex mutex_;
  std::deque<std::string> blocks_ FRX_GUARDED_BY(mutex_);
  std::size_t size_ FRX_GUARDED_BY(mutex_) = 0;
  bool isHeldUp_ FRX_GUARDED_BY(mutex_) = false;
};

DataTask::DataTask(HTTPClientRequest request, DataTaskListener& listener)
    : request_(std::move(request)), listener_(&listener), blocks_(std::make_shared<WaitingBlocks>()) {}

DataTask::~DataTask() { abandon(); }

std::shared_ptr<DataTask> DataTask::start(HTTPClient& client, RunLoop& mainLoop, HTTPClientRequest request,
                                          DataTaskListener& listener) {
  std::shared_ptr<DataTask> task(new DataTask(std::move(request), listener));
  task->send(client, mainLoop);
  return task;
}

// The transfer knows the task only weakly and never holds it: it must end on the main thread.
void DataTask::send(HTTPClient& client, RunLoop& mainLoop) {
  const auto toMain = [weak = weak_from_this(), loop = &mainLoop](auto deliver) {
    loop->post([weak, deliver = std::move(deliver)]() mutable {
      if (const auto task = weak.lock()) deliver(*task);
    });
  };
  HTTPClientCallbacks callbacks;
  callbacks.onResponse = [toMain](const HTTPClientResponse& response) {
    toMain([response](DataTask& task) { task.deliverResponse(response); });
    return true;
  };
  callbacks.wantsData = [blocks = blocks_] { return blocks->hasRoom(); };
  callbacks.onData = [toMain, blocks = blocks_](std::string_view piece) {
    if (blocks->add(piece)) toMain([](DataTask& task) { task.deliverBlock(); });
    return true;
  };
  callbacks.onCompletion = [toMain](std::optional<FRXError> error, const HTTPClientResponse&) {
    toMain([error = std::move(error)](DataTask& task) { task.deliverCompletion(error); });
  };
  transfer_ = client.send(request_, std::move(callbacks));
}

void DataTask::cancel() {
  if (state_ != State::Running) return;
  state_ = State::Canceling;
  transfer_->cancel();
}

void DataTask::abandon() {
  listener_ = nullptr;
  cancel();
}

void DataTask::deliverResponse(const HTTPClientResponse& response) {
  if (listener_ != nullptr && state_ == State::Running) {
    listener_->dataTaskDidReceiveResponse(*this, response);
  }
}

void DataTask::deliverBlock() {
  const auto taken = blocks_->take();
  if (taken.resumes) transfer_->resume();
  if (listener_ != nullptr) listener_->dataTaskDidReceiveData(*this, taken.block);
}

void DataTask::deliverCompletion(std::optional<FRXError> error) {
  // The transfer may have ended by itself just before it was cancelled.
  if (state_ == State::Canceling) error = {HTTPClientErrorDomain, HTTPClientErrorCancelled, "cancelled"};
  state_ = State::Completed;
  if (listener_ != nullptr) listener_->dataTaskDidComplete(*this, error);
}

}  // namespace ferrox

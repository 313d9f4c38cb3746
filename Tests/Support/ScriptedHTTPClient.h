// An HTTP client that answers what the test says, on a thread of its own as the real one does.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox::test {

/// Answers requests in the order of the scripted answers, with a transport error when there is none left.
/// Answers can be held back. Thread: any
class ScriptedHTTPClient : public HTTPClient {
 public:
  struct Answer {
    std::optional<FRXError> error;
    int status = 200;
    std::string body;
  };

  static FRXError refused() { return {HTTPClientErrorDomain, 7, "connection refused"}; }

  void answer(Answer answer) {
    const std::lock_guard lock(mutex_);
    answers_.push_back(std::move(answer));
  }
  /// While held, completions wait for `release()`.
  void hold() {
    const std::lock_guard lock(mutex_);
    holding_ = true;
  }
  void release() {
    std::vector<std::function<void()>> held;
    {
      const std::lock_guard lock(mutex_);
      holding_ = false;
      held.swap(held_);
    }
    for (auto& completion : held) queue_->post(std::move(completion));
  }

  std::vector<HTTPClientRequest> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }
  std::size_t requestCount() const { return requests().size(); }

  std::shared_ptr<HTTPClientTask> send(HTTPClientRequest request, HTTPClientCallbacks callbacks) override {
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
    Answer answer{refused(), 0, ""};
    if (!answers_.empty()) {
      answer = std::move(answers_.front());
      answers_.pop_front();
    }
    std::function<void()> complete = [callbacks = std::move(callbacks), answer = std::move(answer)] {
      HTTPClientResponse response;
      response.status = answer.status;
      response.body = answer.body;
      callbacks.onCompletion(answer.error, std::move(response));
    };
    if (holding_) {
      held_.push_back(std::move(complete));
    } else {
      queue_->post(std::move(complete));
    }
    return std::make_shared<Task>();
  }

 private:
  class Task : public HTTPClientTask {
    void cancel() override {}
    void resume() override {}
  };

  mutable std::mutex mutex_;
  std::vector<HTTPClientRequest> requests_;
  std::deque<Answer> answers_;
  std::vector<std::function<void()>> held_;
  bool holding_ = false;
  std::unique_ptr<BackgroundQueue> queue_ = BackgroundQueue::makePool(1);
};

}  // namespace ferrox::test

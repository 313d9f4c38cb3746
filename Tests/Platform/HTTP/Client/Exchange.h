// One request of a test and all that its callbacks were told.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

/// Keep it until its completion has come; `wait()` does.
class Exchange {
 public:
  /// Begins a request whose body is collected.
  static std::shared_ptr<Exchange> start(HTTPClient& client, HTTPClientRequest request) {
    auto exchange = std::make_shared<Exchange>();
    exchange->task =
        client.send(std::move(request),
                    {.onResponse = nullptr, .onData = nullptr, .onCompletion = completionOf(exchange)});
    return exchange;
  }
  /// Begins a request whose body is streamed into `streamed`.
  static std::shared_ptr<Exchange> stream(HTTPClient& client, HTTPClientRequest request) {
    auto exchange = std::make_shared<Exchange>();
    HTTPClientCallbacks callbacks;
    callbacks.onResponse = [exchange](const HTTPClientResponse& response) {
      exchange->statusBeforeBody = response.status;
      ++exchange->responses;
      return exchange->acceptsResponse.load();
    };
    callbacks.onData = [exchange](std::string_view piece) {
      const std::lock_guard lock(exchange->mutex);
      exchange->streamed.append(piece);
      exchange->changed.notify_all();
      return exchange->acceptsData.load();
    };
    callbacks.onCompletion = completionOf(exchange);
    exchange->task = client.send(std::move(request), std::move(callbacks));
    return exchange;
  }

  /// Until the completion has come; false after the test's patience.
  bool wait(std::chrono::milliseconds timeout = patience) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, timeout, [this] { return completions > 0; });
  }
  bool waitForData(std::size_t size) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, patience, [this, size] { return streamed.size() >= size; });
  }
  int code() const { return error ? error->code : 0; }

  std::shared_ptr<HTTPClientTask> task;
  std::atomic<bool> acceptsResponse{true};
  std::atomic<bool> acceptsData{true};
  std::atomic<int> statusBeforeBody{0};
  std::atomic<int> responses{0};

  std::mutex mutex;
  std::condition_variable changed;
  std::string streamed;
  int completions = 0;
  std::optional<FRXError> error;
  HTTPClientResponse response;
  std::thread::id completionThread;

 private:
  static std::function<void(std::optional<FRXError>, HTTPClientResponse)> completionOf(
      const std::shared_ptr<Exchange>& exchange) {
    return [exchange](std::optional<FRXError> error, HTTPClientResponse response) {
      const std::lock_guard lock(exchange->mutex);
      ++exchange->completions;
      exchange->error = std::move(error);
      exchange->response = std::move(response);
      exchange->completionThread = std::this_thread::get_id();
      exchange->changed.notify_all();
    };
  }
};

}  // namespace ferrox::test

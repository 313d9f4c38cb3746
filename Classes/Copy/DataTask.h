// One HTTP request whose answer is handed to the main thread as it arrives.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox {

class DataTask;
class RunLoop;

/// Told of an answer in its order: the response, the body block by block, the end. The task may be cancelled
/// or abandoned, and the listener destroyed, within each of these calls.
/// Thread: main
class FRX_EXPORT DataTaskListener {
 public:
  virtual ~DataTaskListener() = default;
  virtual void dataTaskDidReceiveResponse(DataTask& task, const HTTPClientResponse& response) = 0;
  /// A block is valid during the call. How the body is cut into blocks means nothing.
  virtual void dataTaskDidReceiveData(DataTask& task, std::optional<std::string_view> data) = 0;
  /// The last call. With an error of code `HTTPClientErrorCancelled` after `cancel`.
  virtual void dataTaskDidComplete(DataTask& task, const std::optional<FRXError>& error) = 0;
};

/// Blocks wait for a main thread that is busy, up to `maxWaitingBytes`; then the sender waits too.
/// Destroying the task abandons it.
/// Thread: main
class FRX_EXPORT DataTask : public std::enable_shared_from_this<DataTask> {
 public:
  enum class State { Running, Canceling, Completed };

  static constexpr std::size_t maxBlockSize = std::size_t{256} << 10;
  static constexpr std::size_t maxWaitingBytes = std::size_t{1} << 20;

  /// Sends the request. Client and loop are borrowed: the client until the task is gone, the loop until the
  /// client is. No call of `listener` is made within this one.
  static std::shared_ptr<DataTask> start(HTTPClient& client, RunLoop& mainLoop, HTTPClientRequest request,
                                         DataTaskListener& listener);
  ~DataTask();
  DataTask(const DataTask&) = delete;
  DataTask& operator=(const DataTask&) = delete;

  /// Ends the transfer. Blocks that are waiting already are still handed over, then the completion follows.
  /// Does nothing unless the task is running.
  void cancel();
  /// Ends the transfer without another call of the listener.
  void abandon();

  State state() const { return state_; }
  const HTTPClientRequest& request() const { return request_; }

 private:
  class WaitingBlocks;

  DataTask(HTTPClientRequest request, DataTaskListener& listener);
  void send(HTTPClient& client, RunLoop& mainLoop);
  void deliverResponse(const HTTPClientResponse& response);
  void deliverBlock();
  void deliverCompletion(std::optional<FRXError> error);

  const HTTPClientRequest request_;
  DataTaskListener* listener_;
  State state_ = State::Running;
  std::shared_ptr<WaitingBlocks> blocks_;
  std::shared_ptr<HTTPClientTask> transfer_;
};

}  // namespace ferrox

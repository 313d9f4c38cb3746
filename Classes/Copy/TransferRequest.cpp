#include "Classes/Copy/TransferRequest.h"

#include <cmath>
#include <utility>

namespace ferrox {
namespace {

constexpr double longestTimeout = 100.0 * 365 * 24 * 3600;

}  // namespace

std::optional<std::chrono::milliseconds> transferInactivityTimeout(double seconds) {
  if (!(seconds > 0) || seconds > longestTimeout) return std::nullopt;
  return std::chrono::milliseconds(static_cast<std::int64_t>(std::ceil(seconds * 1000)));
}

bool isTransferCancellation(const FRXError& error) {
  return error.domain == HTTPClientErrorDomain && error.code == HTTPClientErrorCancelled;
}

void TransferRequest::send(HTTPClient& client, HTTPClientRequest request, HTTPClientCallbacks callbacks) {
  auto task = client.send(std::move(request), std::move(callbacks));
  bool isCancelled = false;
  {
    const MutexLock lock(mutex_);
    task_ = task;
    isCancelled = cancelled_;
  }
  if (isCancelled && task) task->cancel();
}

void TransferRequest::cancel() {
  std::shared_ptr<HTTPClientTask> task;
  {
    const MutexLock lock(mutex_);
    cancelled_ = true;
    task = task_;
  }
  if (task) task->cancel();
}

}  // namespace ferrox

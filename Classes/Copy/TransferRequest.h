// The one HTTP request of a transfer step, which may be cancelled at any moment.
#pragma once

#include <chrono>
#include <limits>
#include <memory>
#include <optional>

#include "Platform/Base/Export.h"
#include "Platform/Base/Mutex.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox {

/// In seconds; what the steps take for "no time-out".
inline constexpr double noTransferTimeout = std::numeric_limits<double>::max();

/// What the steps keep of the time-out they are given: one that is not greater than 0 is none.
inline double transferTimeout(double seconds) { return seconds > 0 ? seconds : noTransferTimeout; }

/// The same for the HTTP client, to whose clock a time-out beyond a century is none either.
FRX_EXPORT std::optional<std::chrono::milliseconds> transferInactivityTimeout(double seconds);

/// Whether that error says that the request was cancelled.
FRX_EXPORT bool isTransferCancellation(const FRXError& error);

/// Thread: any
class FRX_EXPORT TransferRequest {
 public:
  /// At most once. After `cancel` the request is sent and cancelled, so that its completion comes either way.
  void send(HTTPClient& client, HTTPClientRequest request, HTTPClientCallbacks callbacks);
  /// Before, during or after `send`. The completion still comes, soon.
  void cancel();

 private:
  Mutex mutex_;
  bool cancelled_ FRX_GUARDED_BY(mutex_) = false;
  std::shared_ptr<HTTPClientTask> task_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

// Asks one address for the service record of the instance that listens there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/FRXError.h"

namespace ferrox {

class BackgroundQueue;
class FRXNetService;
class HTTPClient;

struct FRXServiceAnswer {
  /// Empty when there was none, or one that cannot belong to a peer.
  std::shared_ptr<FRXNetService> service;
  std::optional<FRXError> error;
  /// Where the request went: host name or IP address, without brackets.
  std::string host;
};

/// Sends GET "/service" with a time-out of 10 s. `address` is a host name or an IP address, an IPv6 one with
/// or without brackets; anything else, and port 0, is answered with `FRXBrowserErrorBadAddress`. `completion`
/// is called once, never inside this call, on a callback thread of the client or of the queue. Thread: any
void requestServiceRecord(HTTPClient& client, BackgroundQueue& background, const std::string& address,
                          std::uint16_t port, std::function<void(FRXServiceAnswer)> completion);

}  // namespace ferrox

// Asks one address for a document of a node: its service record, or what it offers.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {
class FRXNetService;
class HTTPClient;
class HTTPClientTask;
}  // namespace ferrox

namespace ferrox::command {

inline constexpr const char* ServiceFetchErrorDomain = "com.ferrox.command.ServiceFetch";

struct FetchedService {
  /// With host name, name and port; empty when `error` says why not.
  std::shared_ptr<FRXNetService> service;
  std::optional<FRXError> error;
  std::chrono::milliseconds elapsed{0};
  /// The answer's Date as it was sent, whether or not there is a record.
  std::optional<std::string> date = std::nullopt;
};

/// GET /service at the address; at most 10 s without progress, and no record of more than 64 KiB.
/// `completion` is called once, on a callback thread of the client. Thread: any
std::shared_ptr<HTTPClientTask> fetchService(HTTPClient& client, const FRXPeerAddress& address,
                                             std::function<void(FetchedService)> completion);

struct OfferCounts {
  std::size_t streams = 0;
  std::size_t projects = 0;
};

/// GET /capabilities of a known peer; nothing when it does not answer properly. `completion` is called once,
/// on a callback thread of the client. Thread: any
void fetchOfferCounts(HTTPClient& client, const FRXNetService& service,
                      std::function<void(std::optional<OfferCounts>)> completion);

}  // namespace ferrox::command

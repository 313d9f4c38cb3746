#include "Classes/Discovery/FRXServiceRequest.h"

#include <chrono>
#include <cstddef>
#include <utility>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Discovery/FRXPeerAddress.h"
#include "Classes/Discovery/FRXPeerCheck.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {
namespace {

constexpr std::chrono::seconds requestTimeout{10};
/// A record takes some hundred bytes.
constexpr std::size_t maxRecordBody = std::size_t{64} << 10;
constexpr int statusOK = 200;

std::string requestFor(const std::string& address) {
  return "Request for service information at address " + address;
}

std::shared_ptr<FRXNetService> recordFromBody(const std::string& address, const std::string& body,
                                              std::optional<FRXError>& problem) {
  FRXError parseError;
  auto record = FRXNetService::fromJson(body, &parseError);
  if (!record) problem = std::move(parseError);
  if (record) {
    const std::optional<std::string> objection = whyNotAPeer(*record);
    if (!objection) return record;
    FRX_LOG_DEBUG("Service record from " + address + " is of no use: " + *objection);
  }
  FRX_LOG_WARN(requestFor(address) + " failed while deserializing service json: " +
               (problem ? problem->localizedDescription : "FRX service is nil"));
  return nullptr;
}

std::shared_ptr<FRXNetService> recordFromResponse(const std::string& address, const FRXError* transportError,
                                                  const HTTPClientResponse& response,
                                                  std::optional<FRXError>& problem) {
  if (transportError != nullptr) {
    FRX_LOG_WARN(requestFor(address) + " failed with error - " + transportError->localizedDescription);
    problem = *transportError;
    return nullptr;
  }
  if (response.status != statusOK) {
    FRX_LOG_WARN(requestFor(address) + " failed with status code " + std::to_string(response.status));
    return nullptr;
  }
  if (response.body.empty()) {
    FRX_LOG_WARN(requestFor(address) + " failed - no response body.");
    return nullptr;
  }
  return recordFromBody(address, response.body, problem);
}

FRXError badAddress(const std::string& address) {
  FRXError error{FRXBrowserErrorDomain, FRXBrowserErrorBadAddress,
                 "Neither a host name nor an IP address with a port above 0."};
  FRX_LOG_WARN(requestFor(address) + " failed with error - " + error.localizedDescription);
  return error;
}

}  // namespace

void requestServiceRecord(HTTPClient& client, BackgroundQueue& background, const std::string& address,
                          std::uint16_t port, std::function<void(FRXServiceAnswer)> completion) {
  const std::optional<FRXPeerAddress> target = FRXPeerAddress::make(address, port);
  if (!target) {
    background.post([completion = std::move(completion), error = badAddress(address)] {
      completion({nullptr, error, {}});
    });
    return;
  }
  HTTPClientRequest request;
  request.url = target->url("/service");
  request.inactivityTimeout = requestTimeout;
  request.maxBodySize = maxRecordBody;
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [address, host = target->host(), completion = std::move(completion)](
                               const std::optional<FRXError>& error, const HTTPClientResponse& response) {
    FRXServiceAnswer answer;
    answer.host = host;
    answer.service = recordFromResponse(address, error ? &*error : nullptr, response, answer.error);
    completion(std::move(answer));
  };
  client.send(std::move(request), std::move(callbacks));
}

}  // namespace ferrox

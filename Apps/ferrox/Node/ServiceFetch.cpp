#include "Apps/ferrox/Node/ServiceFetch.h"

#include <fmt/format.h>

#include <utility>

#include "Apps/ferrox/Node/Peer.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Base/Json.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox::command {
namespace {

FRXError fetchError(std::string text) { return {ServiceFetchErrorDomain, 1, std::move(text)}; }

FetchedService serviceFrom(const std::optional<FRXError>& failure, const HTTPClientResponse& response) {
  if (failure) return {nullptr, failure, {}};
  if (response.status != 200) {
    return {nullptr, fetchError(fmt::format("answered with status {}", response.status)), {}};
  }
  FRXError error;
  auto service = FRXNetService::fromJson(response.body, &error);
  if (!service)
    return {nullptr, fetchError("answered with no service record: " + error.localizedDescription), {}};
  const bool complete = service->hostName() && !service->hostName()->empty() && service->name() &&
                        !service->name()->empty() && service->port() > 0 && service->port() <= 65535;
  if (!complete) return {nullptr, fetchError("answered with an incomplete service record"), {}};
  return {std::move(service), std::nullopt, {}};
}

std::size_t countOf(const FRXValue& document, std::string_view capability) {
  const FRXValue* offers = document.member(capability);
  if (offers == nullptr) return 0;
  if (const FRXArray* array = offers->asArray()) return array->size();
  const FRXDictionary* object = offers->asObject();
  return object != nullptr ? object->size() : 0;
}

std::optional<OfferCounts> countsFrom(const std::optional<FRXError>& failure,
                                      const HTTPClientResponse& response) {
  if (failure || response.status != 200) return std::nullopt;
  const std::optional<FRXValue> document = parseJson(response.body);
  if (!document || document->asObject() == nullptr) return std::nullopt;
  return OfferCounts{countOf(*document, "streaming"), countOf(*document, "projectsharing")};
}

/// As much as a node reads of a record.
constexpr std::size_t maxRecordBody = std::size_t{64} << 10;
constexpr std::size_t maxOffersBody = std::size_t{1} << 20;

HTTPClientRequest request(std::string url, std::size_t maxBodySize) {
  HTTPClientRequest out;
  out.url = std::move(url);
  out.headers = {{"Accept", "application/json"}};
  out.inactivityTimeout = std::chrono::seconds(10);
  out.maxBodySize = maxBodySize;
  return out;
}

}  // namespace

std::shared_ptr<HTTPClientTask> fetchService(HTTPClient& client, const FRXPeerAddress& address,
                                             std::function<void(FetchedService)> completion) {
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [completion = std::move(completion), begun = std::chrono::steady_clock::now()](
                               const std::optional<FRXError>& failure, const HTTPClientResponse& response) {
    FetchedService fetched = serviceFrom(failure, response);
    fetched.elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begun);
    if (const std::string* const date = response.header("Date")) fetched.date = *date;
    completion(std::move(fetched));
  };
  return client.send(request(address.url("/service"), maxRecordBody), std::move(callbacks));
}

void fetchOfferCounts(HTTPClient& client, const FRXNetService& service,
                      std::function<void(std::optional<OfferCounts>)> completion) {
  // The name was announced by the peer; only a proper host name may become part of a URL.
  const std::optional<FRXPeerAddress> address = FRXPeerAddress::fromText(displayAddress(service));
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [completion = std::move(completion)](const std::optional<FRXError>& failure,
                                                                const HTTPClientResponse& response) {
    completion(countsFrom(failure, response));
  };
  if (!address) return callbacks.onCompletion(fetchError("unusable host name"), {});
  client.send(request(address->url("/capabilities"), maxOffersBody), std::move(callbacks));
}

}  // namespace ferrox::command

#include "Classes/Monitor/FRXHTTPServiceChecker.h"

#include <string>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/CheckedHostName.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox {
namespace {

// RFC 3986 section 3.2.2: an IPv6 literal stands in brackets; RFC 6874: its zone is set off by "%25".
std::string urlHost(std::string hostName) {
  if (hostName.find(':') == std::string::npos) return hostName;
  if (const auto percent = hostName.find('%'); percent != std::string::npos)
    hostName.insert(percent + 1, "25");
  return "[" + hostName + "]";
}

}  // namespace

FRXHTTPServiceChecker::FRXHTTPServiceChecker(const PlatformServices& platform) : platform_(platform) {}

void FRXHTTPServiceChecker::checkServiceForResponse(const std::shared_ptr<FRXNetService>& service,
                                                    Completion completion) {
  HTTPClientRequest request;
  request.method = "HEAD";
  request.url = "http://" + urlHost(checkedHostName(service->hostName().value_or(""))) + ":" +
                std::to_string(static_cast<std::uint64_t>(service->port()));
  request.inactivityTimeout = requestTimeout;
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [completion = std::move(completion)](const std::optional<FRXError>& error,
                                                                const HTTPClientResponse&) {
    if (completion) completion(error ? FRXServiceCheckResult::NoResponse : FRXServiceCheckResult::Responded);
  };
  platform_.httpClient->send(std::move(request), std::move(callbacks));
}

}  // namespace ferrox

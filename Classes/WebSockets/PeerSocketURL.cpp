#include "Classes/WebSockets/PeerSocketURL.h"

#include <algorithm>
#include <string_view>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/Host/HostIdentity.h"
#include "Platform/Net/HostName.h"

namespace ferrox {
namespace {

/// What may stand unescaped in a URL's host: letters of any script, digits, "-", "_", "." and, in an IP
/// literal, ":", "[", "]" and "%".
bool isUsableHost(std::string_view host) {
  constexpr std::string_view unusable = "/?#@\\\"<>^`{|} ";
  return isUsableHostName(host) && host.find_first_of(unusable) == std::string_view::npos;
}

bool isHostAndPort(std::string_view address) {
  const std::size_t colon = address.rfind(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  const std::string_view port = address.substr(colon + 1);
  constexpr std::size_t mostDigits = 5;
  const bool number = !port.empty() && port.size() <= mostDigits &&
                      std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; });
  return number && isUsableHost(address.substr(0, colon));
}

std::string encoded(const std::string& text) {
  return FRXUtilities::urlEncodePathComponent(text).value_or(std::string());
}

}  // namespace

std::shared_ptr<FRXNetService> reachableRecord(std::shared_ptr<FRXNetService> local,
                                               const HostIdentity& host) {
  // Announced host names end in a dot.
  if (!local || local->hostName().value_or("").ends_with('.')) return local;
  const std::string name = host.hostName();
  if (name.empty()) return local;
  return std::make_shared<FRXNetService>(name + ".local.", local->port(), local->name());
}

std::optional<std::string> peerSocketURL(const std::string& address, const std::string& frxServerId,
                                         const FRXNetService* localService) {
  if (!isHostAndPort(address)) return std::nullopt;
  std::string url = "ws://" + address + "/frxsocket?id=" + encoded(frxServerId);
  if (localService != nullptr) {
    url.append("&hostname=").append(encoded(withAnnouncedForm(localService->hostName().value_or(""))));
    url.append("&port=").append(std::to_string(localService->port()));
  }
  return url;
}

}  // namespace ferrox

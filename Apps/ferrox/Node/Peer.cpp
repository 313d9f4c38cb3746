#include "Apps/ferrox/Node/Peer.h"

#include <algorithm>
#include <cctype>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Utilities/FRXUtilities.h"

namespace ferrox::command {

std::string_view toString(PeerState state) {
  switch (state) {
    case PeerState::Found:
      return "found";
    case PeerState::Responsive:
      return "responsive";
    case PeerState::Unresponsive:
      return "unresponsive";
  }
  return "";
}

bool isConnected(const Peer& peer) { return peer.connectedSince && peer.state != PeerState::Unresponsive; }

std::string displayName(const FRXNetService& service) { return displayName(service.name()); }

std::string displayName(const std::optional<std::string>& serviceName) {
  const auto name = FRXUtilities::localizedNameFromServiceId(serviceName);
  return name && !name->empty() ? *name : "?";
}

std::string displayAddress(const FRXNetService& service) {
  std::string host = service.hostName().value_or("?");
  if (!host.empty() && host.back() == '.') host.pop_back();
  std::transform(host.begin(), host.end(), host.begin(),
                 [](unsigned char c) { return static_cast<char>(c < 0x80 ? std::tolower(c) : c); });
  return host + ":" + std::to_string(service.port());
}

std::string displayAddress(const FRXPeerAddress& address) {
  const bool bracketed = address.host().find(':') != std::string::npos;
  return (bracketed ? "[" + address.host() + "]" : address.host()) + ":" + std::to_string(address.port());
}

FRXDictionary recordOf(const FRXNetService& service) {
  const auto text = [](const std::optional<std::string>& value) {
    return value ? FRXValue(*value) : FRXValue();
  };
  return {{"serviceId", service.serviceId()},
          {"hostName", text(service.hostName())},
          {"port", service.port()},
          {"name", text(service.name())}};
}

}  // namespace ferrox::command

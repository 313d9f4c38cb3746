// The handles of announced instances on their way from found to resolved.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ferrox {

class FRXNetService;
class NetService;

/// One handle with the address it resolved to, which the handle itself may change later.
struct FRXResolvedAnnouncement {
  std::shared_ptr<NetService> handle;
  std::string hostName;
  std::uint16_t port = 0;
};

/// Handles are looked up by what they announce, not by identity. Dropped handles are silenced: neither a
/// resolution nor a TXT record of theirs is reported any more. Thread: main
class FRXAnnouncements {
 public:
  void addFound(std::shared_ptr<NetService> handle);
  /// Hands over all found ones, in order; they count as resolving from now on.
  std::vector<std::shared_ptr<NetService>> beginResolving();
  /// Moves the handle to the resolved ones. Returns where it was announced before, if it was.
  std::optional<FRXResolvedAnnouncement> setResolved(const std::shared_ptr<NetService>& handle);
  /// Takes the handle out of the resolving and resolved ones without silencing it.
  void forget(const NetService& handle);
  /// Removes what the handle announced; nothing when it was not resolved.
  std::optional<FRXResolvedAnnouncement> withdraw(const NetService& handle);
  bool isAnnounced(const std::string& hostName, std::uint16_t port) const;
  /// Names of the resolved handles that end with the first part of the peer's host name, which instances
  /// usually take their name from, and of those that resolved to the peer's very address.
  std::vector<std::string> namesBelongingTo(const FRXNetService& peer) const;
  void clear();

 private:
  std::optional<FRXResolvedAnnouncement> takeResolved(const NetService& handle);

  std::vector<std::shared_ptr<NetService>> unresolvedServices_;
  std::vector<std::shared_ptr<NetService>> resolvingServices_;
  std::vector<FRXResolvedAnnouncement> resolvedServices_;
};

}  // namespace ferrox

// The peers a node knows, each with what it is believed to be up to.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/Peer.h"

namespace ferrox::command {

/// Keyed by the record's service id. Thread: main
class PeerTable {
 public:
  using Time = std::chrono::system_clock::time_point;

  /// False when the peer was known under this very name already: searches by address report a peer again.
  bool add(const std::shared_ptr<FRXNetService>& service, Time now);
  /// False when it was not known.
  bool remove(const FRXNetService& service);
  /// False when it was not known or in that state already.
  bool setState(const FRXNetService& service, PeerState state, Time now);
  /// A connection to the peer filed under `serviceId` opened (with the time) or ended. False when that is
  /// nothing new.
  bool setConnected(const std::string& serviceId, std::optional<Time> since);
  /// What is not given stays as it was known.
  void setOffers(const FRXNetService& service, std::optional<std::size_t> streams,
                 std::optional<std::size_t> projects);

  std::optional<Peer> find(const FRXNetService& service) const;
  std::optional<Peer> find(const std::string& serviceId) const;
  /// Sorted by name, then by address.
  std::vector<Peer> sorted() const;
  bool empty() const { return peers_.empty(); }
  std::size_t size() const { return peers_.size(); }

 private:
  std::map<std::string, Peer> peers_;
};

}  // namespace ferrox::command

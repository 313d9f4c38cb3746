// A whole node in this process: server, browser, offers, and the peers looked up by address.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"
#include "Apps/ferrox/Node/NodeMessaging.h"
#include "Apps/ferrox/Node/NodeOffers.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Apps/ferrox/Node/Offers.h"
#include "Apps/ferrox/Node/PeerOffers.h"
#include "Apps/ferrox/Node/PeerTable.h"
#include "Apps/ferrox/Node/ServiceFetch.h"
#include "Classes/Discovery/FRXBrowserDelegate.h"
#include "Platform/Notifications/NotificationDispatcher.h"

namespace ferrox {
class FRXAddressSearch;
class FRXServer;
class Timer;
struct PlatformServices;
}  // namespace ferrox

namespace ferrox::command {

struct NodeSetup {
  NodeOptions options;
  Offers offers;
  std::vector<Observation> observations;
  std::optional<std::string> status;
  /// False: looks for others without being seen; neither server nor announcement.
  bool publishes = true;
};

/// Over the process's shared server and browser, so there is one at a time. Thread: main
class Node final : public FRXBrowserDelegate, public std::enable_shared_from_this<Node> {
 public:
  /// One string of a TXT record holds 255 bytes, "Status=" included (RFC 6763 section 6.1).
  static constexpr std::size_t maxStatusSize = 248;

  /// `listener` is borrowed and outlives the node.
  static std::shared_ptr<Node> make(NodeSetup setup, NodeListener& listener);
  ~Node() override;

  /// Begins; the listener hears of success or failure.
  void start();
  /// Closes the connections in order, so that peers get what was posted before, then stops; `completion` is
  /// called on the main thread when that is done. Peers that take longer than `atMost` are not waited for.
  void finish(std::chrono::milliseconds atMost, std::function<void()> completion);
  /// Withdraws the announcement, of which the listener hears if it was told of its beginning, and closes
  /// every connection before it returns, whatever they still carry.
  void stop();

  std::vector<Peer> peers() const;
  /// The record's members, and "connected" (a connection to the peer is open) and "state".
  FRXDictionary describe(const Peer& peer) const;

  /// Asks the address for its record and adopts it; `completion` is called on the main thread.
  void search(const FRXPeerAddress& address, std::function<void(FetchedService)> completion);
  /// False, with the reason, when the text does not fit a TXT record.
  [[nodiscard]] bool setStatus(const std::string& text, std::string& problem);
  /// Publishes again under a newly made service name, which `completion` gets on the main thread.
  void rename(std::function<void(std::string)> completion);
  /// Whether others are told of this node by discovery.
  bool isAnnounced() const;
  /// Whether a peer that was named by address has still to be found.
  bool isSearching() const;
  /// Posts and observations. A node that does not publish has nobody to talk to.
  NodeMessaging& messaging() { return *messaging_; }
  /// Streams and projects, once the node has started; one that does not publish has none.
  NodeOffers* offers() { return offers_ ? &*offers_ : nullptr; }
  /// Asks every peer what it offers; those that do not answer within `patience` are left out. `completion` is
  /// called on the main thread.
  void list(std::chrono::milliseconds patience,
            std::function<void(const FRXCapabilitiesListing::Result&)> completion);

  void localFRXServiceStarted(const std::string& sessionId) override;
  void localFRXServiceEnded(const std::string& sessionId) override;
  void remoteFRXServiceDiscovered(const std::shared_ptr<FRXNetService>& service) override;
  void remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>& service) override;
  void remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& service) override;
  void remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>& service) override;

 private:
  Node(NodeSetup setup, NodeListener& listener);
  void createName(std::function<void(std::string)> completion);
  void startServer(const std::string& serviceName);
  void startBrowsing();
  void stopBrowsing();
  void repeatStatus();
  void peerDiscovered(const std::shared_ptr<FRXNetService>& service);
  void peerChangedState(const std::shared_ptr<FRXNetService>& service, PeerState state);
  void connectionChanged(ConnectionEvent::Change change, const FRXDictionary& userInfo);
  void offersTold(const FRXNotification& notification, const FRXNetService& sender);
  void askForOffers(const std::shared_ptr<FRXNetService>& service);
  void askAllForOffers();

  const NodeSetup setup_;
  NodeListener& listener_;
  const PlatformServices& services_;
  bool running_ = false;
  std::string status_;
  /// Of the announcement that the network shows now.
  std::optional<std::string> sessionId_;
  PeerTable peers_;
  std::shared_ptr<NodeMessaging> messaging_;
  std::shared_ptr<FRXServer> server_;
  std::optional<NodeOffers> offers_;
  std::vector<std::shared_ptr<FRXAddressSearch>> searches_;
  std::unique_ptr<Timer> statusTimer_;
  std::unique_ptr<Timer> offersTimer_;
  NotificationDispatcher::TokenRef rejoined_;
};

}  // namespace ferrox::command

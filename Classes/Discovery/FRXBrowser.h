// Finds the other instances on the network, tells them from this one, and keeps the set of known peers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Discovery/FRXBrowserDelegate.h"
#include "Classes/Discovery/FRXLocalServiceRecord.h"
#include "Classes/HTTPServer/ConnectionRequestDelegate.h"
#include "Classes/Monitor/FRXServiceMonitorDelegate.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/ListenerSlot.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

class FRXNetService;
class FRXServiceMonitor;

/// What a browser is put together with, where the usual parts will not do.
struct FRXBrowserParts {
  /// Makes the monitor of one browsing run; usually a `FRXServiceMonitor` with the TCP checker.
  std::function<std::shared_ptr<FRXServiceMonitor>(std::weak_ptr<FRXServiceMonitorDelegate>)> makeMonitor;
  /// Tells what the local server knows about itself; usually that is the shared `FRXServer`. Called on any
  /// thread.
  FRXLocalServiceRecord::ServerSource localServer;
};

/// Posted on the process's notification dispatcher, with the browser as sender, whenever a peer's TXT record
/// arrives, which a living peer rewrites with each of its heartbeats.
inline constexpr const char* FRXServiceRejoinedNetworkNotification = "NotifFrxServiceRejoinedNetwork";
/// Its user-info key: the peer's published name exactly as announced.
inline constexpr const char* FRXServiceRejoinedNetworkFRXIdKey = "frxId";

/// Errors of the search by address.
inline constexpr const char* FRXBrowserErrorDomain = "com.ferrox.FRXBrowser.ErrorDomain";
/// The text given to a search is neither a host name nor an IP address, or the port is 0.
inline constexpr int FRXBrowserErrorBadAddress = -1;

/// Browses, resolves, adopts and forgets peers; opens and closes connections as the monitor finds them
/// responsive or not. Nothing starts by itself. Failures are logged and swallowed.
/// Thread: main, unless said otherwise
class FRX_EXPORT FRXBrowser : public ConnectionRequestDelegate,
                              public NetServiceBrowserListener,
                              public NetServiceListener,
                              public FRXServiceMonitorDelegate,
                              public std::enable_shared_from_this<FRXBrowser> {
 public:
  /// Called once, never inside the call that began the search, on a callback thread.
  using SearchHandler = std::function<void(bool success, std::optional<FRXError> error)>;
  /// Likewise; `service` is empty when the search failed.
  using LookUpHandler =
      std::function<void(std::shared_ptr<FRXNetService> service, std::optional<FRXError> error)>;

  /// The process's browser, over the process's platform services, made on first use. Thread: any
  static const std::shared_ptr<FRXBrowser>& sharedInstance();
  /// A browser of one's own. `services` are borrowed.
  static std::shared_ptr<FRXBrowser> make(const PlatformServices& services, FRXBrowserParts parts = {});
  ~FRXBrowser() override;
  FRXBrowser(const FRXBrowser&) = delete;
  FRXBrowser& operator=(const FRXBrowser&) = delete;

  /// Sets who is told, held weakly; an operation that its class does not override is never called.
  template <typename Listener>
  void setDelegate(const std::shared_ptr<Listener>& listener) {
    delegate_.set(listener);
  }
  void setDelegate(std::nullptr_t) { delegate_.set(nullptr); }
  std::shared_ptr<FRXBrowserDelegate> delegate() const { return delegate_.listener(); }

  // Browsing

  /// Browses for services of `type` (for example "_ferrox._tcp") in `domain` (empty: the default local one),
  /// with a new monitor, and becomes the routing layer's connection request delegate.
  void startBrowsingForServicesOfType(const std::string& type, const std::string& inDomain);
  /// Ends browsing and forgets every peer, without telling listener or monitor. The monitor goes on.
  void stopBrowsingForServices();

  /// Asks the network again and checks every known peer, at once: for a machine that has just woken up, or
  /// whose network changed.
  void refresh();

  /// Off by default. On: a peer that becomes known is checked at once instead of at the monitor's next tick.
  bool checksNewServicesAtOnce() const;
  void setChecksNewServicesAtOnce(bool checks);
  /// Seconds, 15.0 by default. Kept and not used: a resolution always has 15 s. Negative values are ignored.
  double addressResolutionTimeout() const;
  void setAddressResolutionTimeout(double seconds);

  // Known peers

  /// In no particular order. Thread: any
  std::vector<std::shared_ptr<FRXNetService>> currentServices() const;
  /// By record key ("HOST:port", in any case) or by published name; empty when nobody matches. Thread: any
  std::shared_ptr<FRXNetService> serviceWithId(std::string_view serviceId) const;
  /// The record key that a published name (in any case) was last seen with. Thread: any
  std::optional<std::string> idForServiceName(std::string_view name) const;
  /// How many records were refused so far: they cannot belong to a peer, or there were too many. Thread: any
  std::uint64_t refusedServiceCount() const;

  // Peers that announce nothing here

  /// Asks "http://ADDRESS:16654/service" for a record and adopts it. `address` is a host name or an IP
  /// address, an IPv6 one with or without brackets. The listener is told of the peer even when it was known.
  /// Thread: any
  void searchForServiceAtAddress(const std::string& address, SearchHandler completionHandler);
  /// The same at another port. Thread: any
  void searchForServiceAtAddress(const std::string& address, std::uint16_t port,
                                 SearchHandler completionHandler);
  /// The same, handing over the record that was found there. Thread: any
  void lookUpServiceAtAddress(const std::string& address, std::uint16_t port, LookUpHandler handler);
  /// Adopts a peer learned of without DNS-SD, later, on the main thread. Known peers (by address or by name),
  /// this instance itself and records that cannot belong to a peer are ignored. A host name under .local gets
  /// its final dot. An announcement of the same name under another host takes the record's place. Thread: any
  void monitorService(std::shared_ptr<FRXNetService> service) override;
  void monitorServiceAtAddress(std::shared_ptr<FRXNetService> service, const std::string& address) override;

  // This instance

  /// As the network knows it: from its own announcement once that was seen, else from the server; empty
  /// when neither can tell. The same object as long as nothing changed: not to be modified. Thread: any
  std::shared_ptr<FRXNetService> localFRXService() const override;
  /// Keeps a record that nothing reads.
  void setLocalFRXService(std::shared_ptr<FRXNetService> service);
  /// Identifies one lifetime of this instance's announcement; "" before the first. Thread: any
  std::string serviceSessionId() const;
  void setServiceSessionId(std::string sessionId);

  // Verification of announcements

  /// Has the DNS-SD stack verify every announcement whose name ends with the first part of the peer's host
  /// name or that resolved to the peer's address; what nobody confirms is removed later.
  void reconfirmFRXService(const std::shared_ptr<FRXNetService>& service);
  /// The same for one published name; names of more than 63 bytes or with a "." are refused.
  void reconfirmDNSRecord(const std::string& serviceName);
  /// Keys and texts of TXT record data; values that are not UTF-8 are left out. Thread: any
  static TXTDictionary parseTxtRecordValues(std::string_view txtData);

  // Events

  void netServiceBrowserDidFindService(const std::shared_ptr<NetService>& service, bool moreComing) override;
  void netServiceBrowserDidRemoveService(const std::shared_ptr<NetService>& service,
                                         bool moreComing) override;
  void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) override;
  void netServiceDidUpdateTXTRecordData(const std::shared_ptr<NetService>& service,
                                        const std::string& txtData) override;
  /// Connects to the peer. Thread: any
  void frxServiceMonitorServiceBecameResponsive(FRXServiceMonitor& monitor,
                                                const std::shared_ptr<FRXNetService>& service) override;
  /// Closes the connection and has the announcement verified. Thread: any
  void frxServiceMonitorServiceBecameUnresponsive(FRXServiceMonitor& monitor,
                                                  const std::shared_ptr<FRXNetService>& service) override;

 private:
  using Selector = std::uint32_t FRXBrowserRespondingSelectors::*;
  using ServiceEvent = void (FRXBrowserDelegate::*)(const std::shared_ptr<FRXNetService>&);

  FRXBrowser(const PlatformServices& services, FRXBrowserParts parts);
  void tellDelegate(Selector selector, ServiceEvent event,
                    const std::shared_ptr<FRXNetService>& record) const;

  void resolveFoundServices();
  void localServiceResolved(const std::shared_ptr<NetService>& service);
  void remoteServiceResolved(const std::shared_ptr<NetService>& service,
                             const std::shared_ptr<FRXNetService>& record);
  void withdrawAnnouncement(const std::string& hostName, std::uint16_t port);
  void rememberRoute(const FRXNetService& record, const std::string& host) const;
  void adopt(const std::shared_ptr<FRXNetService>& record);
  bool remember(const std::shared_ptr<FRXNetService>& record);
  bool isKnown(const FRXNetService& record) const;
  std::shared_ptr<FRXNetService> instanceNamed(const std::optional<std::string>& name) const;
  void forgetGuess(const FRXNetService& announced);
  void forget(const std::shared_ptr<FRXNetService>& record);
  bool isThisInstance(const FRXNetService& record) const;
  void notifyServiceDiscovered(const std::shared_ptr<FRXNetService>& record);
  void notifyServiceDisappeared(const std::shared_ptr<FRXNetService>& record);
  void checkAtOnce(const FRXNetService& record);
  void becameResponsive(const std::shared_ptr<FRXNetService>& service);
  void becameUnresponsive(const std::shared_ptr<FRXNetService>& service);

  ListenerSlot<FRXBrowserDelegate, FRXBrowserRespondingSelectors> delegate_;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace ferrox

// What the library asks of a DNS-SD stack: publish, browse, resolve, reconfirm, look host names up.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/DNSSD/NetService.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox {

class RunLoop;

/// Keys and texts of a TXT record.
using TXTDictionary = std::map<std::string, std::string>;

/// Told about found and withdrawn instances. A batch that belongs together arrives with `moreComing` true
/// on all but its last event. Thread: main
class FRX_EXPORT NetServiceBrowserListener {
 public:
  virtual ~NetServiceBrowserListener() = default;
  virtual void netServiceBrowserDidFindService(const std::shared_ptr<NetService>& service,
                                               bool moreComing) = 0;
  virtual void netServiceBrowserDidRemoveService(const std::shared_ptr<NetService>& service,
                                                 bool moreComing) = 0;
};

/// Browses for one service type. Each instance is found once, on however many interfaces and address
/// families it is seen, and removed when the last of them is gone. Thread: main
class FRX_EXPORT NetServiceBrowser {
 public:
  virtual ~NetServiceBrowser() = default;
  virtual void setDelegate(std::weak_ptr<NetServiceBrowserListener> listener) = 0;
  /// `domain` empty means the default local domain.
  virtual void searchForServices(const std::string& type, const std::string& domain) = 0;
  virtual void stop() = 0;
};

/// One published service; withdrawn (with a goodbye) when destroyed. Thread: any
class FRX_EXPORT NetServicePublication {
 public:
  virtual ~NetServicePublication() = default;
  /// Rewrites the TXT record without withdrawing the service. A record that would not fit one packet is
  /// refused with an error logged, and the previous one stays.
  virtual void setTXTRecord(TXTDictionary txt) = 0;
};

/// What `DNSSD::publish` shall make visible, and who is told how that went.
struct PublicationRequest {
  std::string name;
  std::string type;
  std::string domain;
  std::uint16_t port = 0;
  TXTDictionary txt;
  /// Called on the main thread with the name under which the service is really visible: the asked one, or
  /// another after a conflict on the network. Called again when the name changes later.
  std::function<void(const std::string& finalName)> onPublished;
  /// Called on the main thread when publication failed for good.
  std::function<void(const FRXError& error)> onFailed;
};

/// Which stack discovery uses, on which interfaces, and under which host name. Read once, when the stack is
/// made.
struct DNSSDConfiguration {
  enum class BackEnd { Auto, Embedded, Daemon, Off };
  /// Auto: the system's daemon when one runs at start, else the embedded stack; never swapped later.
  BackEnd backEnd = BackEnd::Auto;
  /// Only these interfaces, when not empty.
  std::vector<std::string> allowedInterfaces;
  /// Never these. Entries may end in "*". While this list is left as it is, an interface that carries a
  /// default route or is allowed by name is used all the same. Loopback is used when no other interface is
  /// up, or when it is allowed by name.
  std::vector<std::string> deniedInterfaces = {"docker*", "br-*", "veth*", "virbr*", "vmnet*", "vboxnet*"};
  /// The label published as NAME.local (embedded stack only); the machine's host name when absent.
  std::optional<std::string> hostName;
};

/// The DNS-SD stack. Both implementations live on a discovery thread of their own and post every event to
/// the main loop, so that a hung daemon blocks nothing else.
class FRX_EXPORT DNSSD {
 public:
  /// Ends the stack after it said goodbye for what was published. Pending look-ups are answered with nothing.
  /// Waits for at most a few seconds, even for a system daemon that hangs.
  virtual ~DNSSD() = default;

  /// Thread: main
  virtual std::unique_ptr<NetServiceBrowser> makeBrowser() = 0;
  /// Thread: any
  virtual std::unique_ptr<NetServicePublication> publish(PublicationRequest request) = 0;

  /// Asks the stack to verify a cached record and to drop it when nobody confirms it; the removal then
  /// arrives at the browsers like any other. `rdata` is the record's data in DNS wire form (RFC 1035
  /// section 3.3). Returns 0, or a code when the record cannot be handled. Does not block. Thread: any
  virtual int reconfirmRecord(std::uint32_t flags, std::uint32_t interfaceIndex, const std::string& fullName,
                              std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) = 0;

  /// Addresses of a name under .local; an empty list when nobody answered within `timeout`. `completion`
  /// runs once, on the discovery thread, never inside this call; a system daemon that hangs delays it beyond
  /// `timeout`, by up to 25 s. Thread: any
  virtual void resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                               std::function<void(std::vector<SocketAddress>)> completion) = 0;

  /// Sends queries again at once after the network changed or the machine slept. Thread: any
  virtual void refresh() = 0;

  /// "embedded", "avahi" or "off". Thread: any
  virtual std::string_view backEndName() const = 0;

  /// Starts the stack. Never null; a stack that cannot start logs the reason and keeps trying.
  static std::unique_ptr<DNSSD> make(RunLoop& mainLoop, const DNSSDConfiguration& configuration);
};

}  // namespace ferrox

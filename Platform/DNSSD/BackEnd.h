// What discovery needs of a multicast DNS stack, whether embedded or the system's daemon. Everything here is
// confined to the discovery thread; reports arrive in a turn of their own, never inside the call that asked.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::dnssd {

/// Where a record was heard: one interface and one address family. The stacks report each separately.
struct Place {
  int interfaceIndex = -1;
  bool ipv6 = false;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 takes the default for a comparison with 0.
  friend auto operator<=>(const Place&, const Place&) = default;
};

/// AllForNow: what the cache and the first answers hold has been reported. Failed: the look-up is dead.
enum class LookupEvent { Added, Removed, AllForNow, Failed };

/// `what` is the instance name when browsing, else uncompressed record data (RFC 1035 section 3.3).
struct LookupReport {
  LookupEvent event = LookupEvent::Failed;
  Place place;
  std::string what;
};

/// Ends its look-up when destroyed; nothing is reported afterwards.
class FRX_EXPORT Lookup {
 public:
  virtual ~Lookup() = default;
};

/// Established: the name is ours. Collision: another took it. Failed: for a reason that no other name would
/// mend.
enum class GroupEvent { Established, Collision, Failed };

/// The records of one service on the network; withdrawn with a goodbye when destroyed.
class FRX_EXPORT ServiceGroup {
 public:
  virtual ~ServiceGroup() = default;
  virtual bool updateTXT(const std::string& rdata) = 0;
};

/// One service as it is registered: the instance's name without escapes, the type as "_ferrox._tcp", and the
/// TXT record in wire form (RFC 6763 section 6.1).
struct ServiceRecords {
  std::string name;
  std::string type;
  std::string domain;
  std::uint16_t port = 0;
  std::string txt;
};

/// Collision: another owner has the name already. Invalid: no attempt with these values can succeed.
enum class PublishError { None, Collision, Invalid, Temporary };

/// What a back end tells of its own coming and going. Thread: discovery
class FRX_EXPORT BackEndListener {
 public:
  virtual ~BackEndListener() = default;
  /// Look-ups may be made from now on; those of before are gone.
  virtual void backEndDidStart() = 0;
  /// All look-ups and groups are dead. They must be destroyed inside this call.
  virtual void backEndWillStop() = 0;
  /// Groups may be made: the host's own name is established.
  virtual void publishingDidStart() = 0;
  /// Groups must be destroyed inside this call, because the host's name is changing or the stack ends.
  virtual void publishingWillStop() = 0;
};

/// One implementation of mDNS: the embedded stack, or the system's daemon. Thread: discovery
class FRX_EXPORT BackEnd {
 public:
  using LookupHandler = std::function<void(const LookupReport&)>;
  using GroupHandler = std::function<void(GroupEvent)>;

  virtual ~BackEnd() = default;

  /// Starts, and keeps trying when that fails. The listener outlives the back end.
  virtual void start(BackEndListener& listener, const InterfaceSelection& interfaces) = 0;
  /// Goodbyes are on the wire when this returns.
  virtual void stop() = 0;
  virtual void interfacesChanged(const InterfaceSelection& interfaces) = 0;

  /// The factories return an empty pointer when the stack is not there or refuses.
  virtual std::unique_ptr<Lookup> browse(const std::string& type, const std::string& domain,
                                         LookupHandler handler) = 0;
  /// `name` is in escaped text form.
  virtual std::unique_ptr<Lookup> watchRecord(const std::string& name, std::uint16_t recordType,
                                              LookupHandler handler) = 0;
  /// False when `group` should be made anew because it was made for another choice of interfaces.
  virtual bool coversInterfaces(const ServiceGroup& group) const = 0;
  virtual std::unique_ptr<ServiceGroup> publish(const ServiceRecords& records, GroupHandler handler,
                                                PublishError& error) = 0;
};

}  // namespace ferrox::dnssd

// Turns host names into addresses: names under .local through discovery, all others through the system.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox {

class DNSSD;

/// Errors of look-ups.
inline constexpr const char* HostNameResolverErrorDomain = "com.ferrox.resolver.ErrorDomain";
/// What was given cannot be a host name.
inline constexpr int HostNameResolverErrorUnusableName = 1;
/// No host has that name, or it has no address.
inline constexpr int HostNameResolverErrorNotFound = 2;
/// Nobody answered in time.
inline constexpr int HostNameResolverErrorTimedOut = 3;

/// Finds the addresses of a host: names under .local by multicast, all others as the system does. Thread: any
class FRX_EXPORT HostNameResolver {
 public:
  /// Addresses in the order in which they should be tried (RFC 8305 section 4: families alternate), or an
  /// error; never both.
  using Completion = std::function<void(std::vector<SocketAddress>, std::optional<FRXError>)>;

  virtual ~HostNameResolver() = default;

  /// Looks `hostName` up; IP literals are answered without any look-up. A trailing dot is allowed.
  /// `completion` is called exactly once, never inside this call, on any thread, at the latest after
  /// `timeout`. Thread: any
  virtual void resolve(const std::string& hostName, std::uint16_t port, std::chrono::milliseconds timeout,
                       Completion completion) = 0;

  /// Where a host under .local was reached although discovery may not know it: `alternative` (an IP literal
  /// or a name that is not under .local) is looked up instead whenever discovery has no quick answer for
  /// `hostName`. Only the latest thousand or so are kept. Thread: any
  virtual void setAlternative(const std::string& hostName, const std::string& alternative) {
    (void)hostName, (void)alternative;
  }

  /// `discovery` answers the names under .local and must outlive the resolver.
  static std::unique_ptr<HostNameResolver> make(DNSSD& discovery);
};

}  // namespace ferrox

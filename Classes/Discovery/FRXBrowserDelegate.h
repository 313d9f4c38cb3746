// What a host learns from discovery: its own announcement, and the peers that come, go, answer and fall
// silent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXNetService;

/// Every operation is optional: override those of interest, publicly and without overloading them.
/// Thread: main, except where an operation says otherwise
class FRX_EXPORT FRXBrowserDelegate {
 public:
  virtual ~FRXBrowserDelegate() = default;

  /// This instance's own announcement is visible on the network. Each time it appears is a new session.
  virtual void localFRXServiceStarted(const std::string& sessionId) { (void)sessionId; }
  /// It was withdrawn.
  virtual void localFRXServiceEnded(const std::string& sessionId) { (void)sessionId; }
  /// A peer became known. The same peer may be reported again, for example after a search by address.
  /// Thread: main; for a search by address also a callback thread of the HTTP client
  virtual void remoteFRXServiceDiscovered(const std::shared_ptr<FRXNetService>& service) { (void)service; }
  /// A known peer's announcement was withdrawn. The browser still knows the record during this call.
  virtual void remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>& service) { (void)service; }
  /// A known peer answers, for the first time or again; its record says `isAvailable`.
  virtual void remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& service) {
    (void)service;
  }
  /// A known peer has stopped answering. It stays known until its announcement is withdrawn.
  virtual void remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>& service) {
    (void)service;
  }
};

/// Which operations a listener implements, found out once when it is set; 0 means not.
struct FRXBrowserRespondingSelectors {
  std::uint32_t localFRXServiceStarted = 0;
  std::uint32_t localFRXServiceEnded = 0;
  std::uint32_t remoteFRXServiceDiscovered = 0;
  std::uint32_t remoteFRXServiceRemoved = 0;
  std::uint32_t remoteFRXServiceBecameResponsive = 0;
  std::uint32_t remoteFRXServiceBecameUnresponsive = 0;

  template <typename Listener>
  static constexpr FRXBrowserRespondingSelectors of() {
    using Base = FRXBrowserDelegate;
    return {
        overridesOperation(&Base::localFRXServiceStarted, &Listener::localFRXServiceStarted),
        overridesOperation(&Base::localFRXServiceEnded, &Listener::localFRXServiceEnded),
        overridesOperation(&Base::remoteFRXServiceDiscovered, &Listener::remoteFRXServiceDiscovered),
        overridesOperation(&Base::remoteFRXServiceRemoved, &Listener::remoteFRXServiceRemoved),
        overridesOperation(&Base::remoteFRXServiceBecameResponsive,
                           &Listener::remoteFRXServiceBecameResponsive),
        overridesOperation(&Base::remoteFRXServiceBecameUnresponsive,
                           &Listener::remoteFRXServiceBecameUnresponsive),
    };
  }
};

}  // namespace ferrox

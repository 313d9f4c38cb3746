// What a host learns of each notification that a known peer sent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXNetService;
class FRXNotification;

/// The operation is optional: override it publicly, without overloading it. Thread: main
class FRX_EXPORT FRXMessageReceivedDelegate {
 public:
  virtual ~FRXMessageReceivedDelegate() = default;

  /// A notification of the peer `fromSender` was delivered to the observers here. `withServiceSessionId`
  /// identifies the lifetime of the peer's announcement in which it was sent; "" when the peer told none.
  virtual void frxMessageWasReceived(const FRXNotification& notification,
                                     const std::shared_ptr<FRXNetService>& fromSender,
                                     const std::string& withServiceSessionId) {
    (void)notification, (void)fromSender, (void)withServiceSessionId;
  }
};

/// Whether a listener implements it, found out once when it is set; 0 means not.
struct FRXMessageReceivedRespondingSelectors {
  std::uint32_t frxMessageReceived = 0;

  template <typename Listener>
  static constexpr FRXMessageReceivedRespondingSelectors of() {
    return {overridesOperation(&FRXMessageReceivedDelegate::frxMessageWasReceived,
                               &Listener::frxMessageWasReceived)};
  }
};

}  // namespace ferrox

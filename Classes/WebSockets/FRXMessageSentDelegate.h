// Who is told of each message that was sent to a peer.
#pragma once

#include <memory>

#include "Platform/Base/Export.h"
#include "Platform/Base/ListenerSelectors.h"

namespace ferrox {

class FRXNetService;
class FRXWebsocketMessage;

/// Every operation is optional. Thread: main
class FRX_EXPORT FRXMessageSentDelegate {
 public:
  virtual ~FRXMessageSentDelegate() = default;
  /// `message` was handed to the connection with a known peer. Both are valid during the call.
  virtual void frxMessageWasSent(const FRXWebsocketMessage& message,
                                 const std::shared_ptr<FRXNetService>& toRecipient) {
    (void)message, (void)toRecipient;
  }
};

/// Which of the operations a listener implements.
struct FRXMessageSentRespondingSelectors {
  bool frxMessageWasSent = false;

  template <typename Concrete>
  static constexpr FRXMessageSentRespondingSelectors of() {
    return {.frxMessageWasSent =
                overridesOperation(&FRXMessageSentDelegate::frxMessageWasSent, &Concrete::frxMessageWasSent)};
  }
};

}  // namespace ferrox

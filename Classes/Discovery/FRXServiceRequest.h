// Asks one address for the service record of the instance that listens there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

class FRXNetService;
class HTTPClient;

/// Sends GET "/service" with a time-out of 10 s. `completion` gets the record, or nothing and the error if
/// there is one; once, never inside this call, on a callback thread of the client. `addressText` is how the
/// log names the address. A record that cannot belong to a peer counts as none. Thread: any
void requestServiceRecord(
    HTTPClient& client, const FRXPeerAddress& address, std::string addressText,
    std::function<void(std::shared_ptr<FRXNetService>, std::optional<FRXError>)> completion);

}  // namespace ferrox

// An outgoing TCP connection with a connect time-out, tried over all addresses of the host.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

class HostNameResolver;
class RunLoop;
class TCPClientSocket;

/// Told about one socket. Thread: the callback loop's
class FRX_EXPORT TCPClientSocketListener {
 public:
  virtual ~TCPClientSocketListener() = default;
  virtual void socketDidConnectToHost(TCPClientSocket& socket, const std::string& host,
                                      std::uint16_t port) = 0;
  /// The connection ended or could not be made; `error` is absent after an orderly end. A connect time-out
  /// arrives here too.
  virtual void socketDidDisconnectWithError(TCPClientSocket& socket,
                                            const std::optional<FRXError>& error) = 0;
};

/// Nothing is posted to the callback loop any more once the last owner has let go.
/// Thread: any; listeners are called on the callback loop only.
class FRX_EXPORT TCPClientSocket {
 public:
  virtual ~TCPClientSocket() = default;
  virtual void setDelegate(std::weak_ptr<TCPClientSocketListener> listener) = 0;
  /// Resolves `host` and races its addresses, a new attempt every 250 ms or as soon as one fails, and keeps
  /// the first that connects (RFC 8305). False with `error` when it cannot even begin (an unusable host name
  /// or port, already connecting); then no listener call follows.
  [[nodiscard]] virtual bool connectToHost(const std::string& host, std::uint16_t port,
                                           std::chrono::milliseconds timeout, FRXError* error = nullptr) = 0;
  virtual void disconnect() = 0;

  static std::shared_ptr<TCPClientSocket> make(HostNameResolver& resolver, RunLoop& callbackLoop);
};

}  // namespace ferrox

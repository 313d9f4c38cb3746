// One TCP check of one host and port.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Copy/FRXConcurrentOperation.h"
#include "Classes/Monitor/FRXServiceChecker.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/Mutex.h"
#include "Platform/TCP/TCPClientSocket.h"

namespace ferrox {

/// Connects, which is the whole check: nothing is sent. Goes straight to connecting when it is started; it
/// neither asks whether it is startable nor marks itself executing.
class FRX_EXPORT FRXTCPServiceCheckerOperation final : public FRXConcurrentOperation,
                                                       public TCPClientSocketListener {
 public:
  static constexpr std::chrono::milliseconds connectTimeout{1000};

  using Completion = FRXServiceChecker::Completion;
  using SocketFactory = std::function<std::shared_ptr<TCPClientSocket>()>;

  /// Every "local." in the host name, in that case, becomes "local"; then the name is upper-cased.
  /// `completion` is called once, after the operation is finished, with `Responded` or `NoResponse`.
  FRXTCPServiceCheckerOperation(std::string hostName, std::uint64_t port, Completion completion,
                                SocketFactory makeSocket);

  void start() override;
  void finish() override;

  const std::string& hostName() const { return hostName_; }
  std::uint64_t port() const { return port_; }
  bool didRespond() const { return didRespond_.load(); }

  /// Same host name and port.
  bool isEqual(const Operation& other) const override;
  /// Agrees with `isEqual`.
  std::uint64_t hash() const;

  void socketDidConnectToHost(TCPClientSocket& socket, const std::string& host, std::uint16_t port) override;
  void socketDidDisconnectWithError(TCPClientSocket& socket, const std::optional<FRXError>& error) override;

 private:
  std::shared_ptr<TCPClientSocket> makeSocketListenedTo();
  void detachFrom(TCPClientSocket& socket);
  std::string target() const;

  const std::string hostName_;
  const std::uint64_t port_;
  const SocketFactory makeSocket_;
  std::atomic<bool> didRespond_{false};

  Mutex mutex_;
  Completion completion_ FRX_GUARDED_BY(mutex_);
  std::shared_ptr<TCPClientSocket> socket_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

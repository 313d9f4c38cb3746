#include "Classes/Monitor/FRXTCPServiceCheckerOperation.h"

#include <functional>
#include <utility>

#include "Classes/Monitor/CheckedHostName.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {

FRXTCPServiceCheckerOperation::FRXTCPServiceCheckerOperation(std::string hostName, std::uint64_t port,
                                                             Completion completion, SocketFactory makeSocket)
    : hostName_(text::upperCased(checkedHostName(std::move(hostName)))),
      port_(port),
      makeSocket_(std::move(makeSocket)),
      completion_(std::move(completion)) {}

bool FRXTCPServiceCheckerOperation::isEqual(const Operation& other) const {
  if (this == &other) return true;
  const auto* const check = dynamic_cast<const FRXTCPServiceCheckerOperation*>(&other);
  return check != nullptr && check->hostName_ == hostName_ && check->port_ == port_;
}

std::uint64_t FRXTCPServiceCheckerOperation::hash() const {
  const std::uint64_t hostHash = hostName_.empty() ? 0 : std::hash<std::string>{}(hostName_);
  return 961 + 31 * hostHash + port_;
}

void FRXTCPServiceCheckerOperation::start() {
  const auto socket = makeSocketListenedTo();
  FRXError error;
  if (socket->connectToHost(hostName_, static_cast<std::uint16_t>(port_), connectTimeout, &error)) return;
  FRX_LOG_ERROR("Failed to establish TCP connection to " + target() + " - " + error.localizedDescription);
  didRespond_ = false;
  finish();
}

std::shared_ptr<TCPClientSocket> FRXTCPServiceCheckerOperation::makeSocketListenedTo() {
  auto socket = makeSocket_();
  socket->setDelegate(std::static_pointer_cast<FRXTCPServiceCheckerOperation>(shared_from_this()));
  const MutexLock lock(mutex_);
  socket_ = socket;
  return socket;
}

void FRXTCPServiceCheckerOperation::socketDidConnectToHost(TCPClientSocket& socket, const std::string&,
                                                           std::uint16_t) {
  FRX_LOG_DEBUG("TCP connection successfully established with " + target());
  didRespond_ = true;
  detachFrom(socket);
  finish();
}

void FRXTCPServiceCheckerOperation::socketDidDisconnectWithError(TCPClientSocket& socket,
                                                                 const std::optional<FRXError>& error) {
  FRX_LOG_DEBUG("TCP connection failed with " + target());
  if (error) didRespond_ = false;
  detachFrom(socket);
  finish();
}

void FRXTCPServiceCheckerOperation::detachFrom(TCPClientSocket& socket) {
  socket.setDelegate({});
  socket.disconnect();
}

void FRXTCPServiceCheckerOperation::finish() {
  // The queue may hold the last reference but ours, and lets go when the operation is finished.
  const auto self = shared_from_this();
  FRXConcurrentOperation::finish();
  Completion completion;
  std::shared_ptr<TCPClientSocket> socket;
  {
    const MutexLock lock(mutex_);
    completion = std::exchange(completion_, nullptr);
    socket.swap(socket_);
  }
  if (!completion) return;
  completion(didRespond() ? FRXServiceCheckResult::Responded : FRXServiceCheckResult::NoResponse);
}

std::string FRXTCPServiceCheckerOperation::target() const {
  return "host " + hostName_ + " on port " + std::to_string(port_);
}

}  // namespace ferrox

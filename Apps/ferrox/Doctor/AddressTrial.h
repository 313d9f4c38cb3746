// Tries one address as a peer would: a TCP connection, then the service record by HTTP and a WebSocket.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Apps/ferrox/Doctor/Attempt.h"
#include "Apps/ferrox/Doctor/ClockDifference.h"
#include "Apps/ferrox/Doctor/SocketTrial.h"
#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/TCP/TCPClientSocket.h"

namespace ferrox {
class FRXNetService;
class HTTPClient;
class HTTPClientTask;
class HostNameResolver;
class RunLoop;
class Timer;
}  // namespace ferrox

namespace ferrox::command {

struct FetchedService;

/// Borrowed; they outlive the trials.
struct TrialServices {
  RunLoop& loop;
  HostNameResolver& resolver;
  HTTPClient& http;
};

/// Thread: the loop's
class AddressTrial final : public TCPClientSocketListener, public std::enable_shared_from_this<AddressTrial> {
 public:
  static constexpr std::chrono::milliseconds connectTimeout{2000};
  /// For HTTP and WebSocket, which are tried at the same time once TCP succeeded.
  static constexpr std::chrono::milliseconds answerTimeout{3000};
  /// Everything together, with a second to take leave.
  static constexpr std::chrono::milliseconds longest{6500};

  AddressTrial(const TrialServices& services, FRXPeerAddress address);
  ~AddressTrial() override;

  void begin();
  bool isOver() const;

  const Attempt& tcp() const { return tcp_; }
  /// The system's code of what kept TCP from connecting, or 0.
  int tcpErrorCode() const { return tcpErrorCode_; }
  const Attempt& http() const { return http_; }
  const SocketTrial& socket() const { return *socket_; }
  /// What HTTP brought; empty when that failed.
  const std::shared_ptr<FRXNetService>& service() const { return service_; }
  /// By the heartbeat, or else by the Date of the HTTP answer.
  std::optional<ClockDifference> clock() const;

  void socketDidConnectToHost(TCPClientSocket& socket, const std::string& host, std::uint16_t port) override;
  void socketDidDisconnectWithError(TCPClientSocket& socket, const std::optional<FRXError>& error) override;

 private:
  void tcpFailed(const FRXError& error);
  void askForService();
  void serviceArrived(const FetchedService& fetched, WallTime asked, WallTime answered);

  const TrialServices services_;
  const FRXPeerAddress address_;
  std::shared_ptr<TCPClientSocket> connection_;
  std::shared_ptr<HTTPClientTask> request_;
  std::unique_ptr<Timer> requestTimer_;
  std::shared_ptr<SocketTrial> socket_;
  Attempt tcp_;
  int tcpErrorCode_ = 0;
  Attempt http_;
  std::shared_ptr<FRXNetService> service_;
  std::optional<ClockDifference> clockByDate_;
};

}  // namespace ferrox::command

#include "Apps/ferrox/Doctor/AddressTrial.h"

#include <fmt/format.h>

#include <utility>

#include "Apps/ferrox/Node/ServiceFetch.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Net/HostNameResolver.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {

AddressTrial::AddressTrial(const TrialServices& services, FRXPeerAddress address)
    : services_(services),
      address_(std::move(address)),
      socket_(std::make_shared<SocketTrial>(services.loop, services.resolver, address_)) {}

AddressTrial::~AddressTrial() = default;

void AddressTrial::begin() {
  tcp_.begin();
  connection_ = TCPClientSocket::make(services_.resolver, services_.loop);
  connection_->setDelegate(weak_from_this());
  FRXError error;
  if (!connection_->connectToHost(address_.host(), address_.port(), connectTimeout, &error)) tcpFailed(error);
}

bool AddressTrial::isOver() const {
  if (!tcp_.isOver()) return false;
  return !tcp_.succeeded() || (http_.isOver() && socket_->isOver());
}

std::optional<ClockDifference> AddressTrial::clock() const {
  return socket_->clock() ? socket_->clock() : clockByDate_;
}

void AddressTrial::socketDidConnectToHost(TCPClientSocket&, const std::string&, std::uint16_t) {
  tcp_.succeed();
  connection_->disconnect();
  connection_.reset();
  askForService();
  socket_->begin(answerTimeout);
}

void AddressTrial::socketDidDisconnectWithError(TCPClientSocket&, const std::optional<FRXError>& error) {
  tcpFailed(error.value_or(FRXError{"", 0, "closed"}));
}

void AddressTrial::tcpFailed(const FRXError& error) {
  if (error.domain != HostNameResolverErrorDomain) tcpErrorCode_ = error.code;
  tcp_.fail(error.localizedDescription);
}

void AddressTrial::askForService() {
  http_.begin();
  // The client's own time-out lets whoever sends a byte now and then go on for ever.
  requestTimer_ = Timer::scheduleOnce(services_.loop, answerTimeout, [this] {
    http_.fail(
        fmt::format("no complete answer within {} s", std::chrono::duration<double>(answerTimeout).count()));
    request_->cancel();
  });
  const WallTime asked = wallTimeNow();
  request_ =
      fetchService(services_.http, address_,
                   [weak = weak_from_this(), &loop = services_.loop, asked](const FetchedService& fetched) {
                     loop.post([weak, fetched, asked, answered = wallTimeNow()] {
                       const auto self = weak.lock();
                       if (self) self->serviceArrived(fetched, asked, answered);
                     });
                   });
}

void AddressTrial::serviceArrived(const FetchedService& fetched, WallTime asked, WallTime answered) {
  requestTimer_.reset();
  if (http_.isOver()) return;
  if (fetched.date) clockByDate_ = ClockDifference::fromDate(*fetched.date, asked, answered);
  if (!fetched.service) return http_.fail(fetched.error->localizedDescription);
  service_ = fetched.service;
  http_.succeed();
}

}  // namespace ferrox::command

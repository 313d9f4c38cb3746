#include "Platform/Net/HostConnector.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Net/ConnectionRace.h"
#include "Platform/Net/HostNameResolver.h"

namespace ferrox {
namespace {

// A look-up that took longer has failed, however patient the caller is.
constexpr std::chrono::milliseconds longestLookup{30'000};

}  // namespace

HostConnector::HostConnector(IOThread& thread, Completion completion)
    : thread_(thread), completion_(std::move(completion)) {}

HostConnector::~HostConnector() = default;

std::shared_ptr<HostConnector> HostConnector::start(HostNameResolver& resolver, const std::string& host,
                                                    std::uint16_t port,
                                                    std::optional<std::chrono::milliseconds> timeout,
                                                    Completion completion) {
  auto& thread = IOThread::shared();
  std::shared_ptr<HostConnector> self(new HostConnector(thread, std::move(completion)));
  if (timeout) thread.post([self, limit = *timeout] { self->startDeadline(limit); });
  resolver.resolve(host, port, std::min(timeout.value_or(longestLookup), longestLookup),
                   [self, &thread](std::vector<SocketAddress> addresses, std::optional<FRXError> error) {
                     thread.post([self, found = std::move(addresses), failure = std::move(error)]() mutable {
                       if (failure) return self->complete({}, std::move(failure));
                       self->race(std::move(found));
                     });
                   });
  return self;
}

void HostConnector::cancel() {
  thread_.post([self = shared_from_this()] {
    self->completion_ = nullptr;
    self->complete({}, std::nullopt);
  });
}

void HostConnector::startDeadline(std::chrono::milliseconds timeout) {
  if (!completion_) return;
  // The timer holds the connector, and is cancelled when the connector is done.
  deadline_ = thread_.startTimer(timeout, [self = shared_from_this()] {
    self->deadline_.reset();
    self->complete({}, socketError(ETIMEDOUT));
  });
}

void HostConnector::race(std::vector<SocketAddress> addresses) {
  if (!completion_) return;
  race_ = std::make_shared<ConnectionRace>(
      thread_, std::move(addresses),
      [self = shared_from_this()](FileDescriptor socket, std::optional<FRXError> error) {
        self->complete(std::move(socket), std::move(error));
      });
  race_->start();
}

void HostConnector::complete(FileDescriptor socket, std::optional<FRXError> error) {
  if (deadline_) thread_.cancelTimer(*std::exchange(deadline_, std::nullopt));
  if (const auto race = std::exchange(race_, nullptr)) race->cancel();
  const auto completion = std::exchange(completion_, nullptr);
  if (completion) completion(std::move(socket), std::move(error));
}

}  // namespace ferrox

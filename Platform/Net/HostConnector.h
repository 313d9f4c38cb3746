// From a host name to a connected socket, within one time-out: look-up, then a race of the addresses.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Base/FRXError.h"
#include "Platform/Net/FileDescriptor.h"
#include "Platform/Net/IOThread.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox {

class ConnectionRace;
class HostNameResolver;

/// One try to reach a host. Whoever starts it may drop the handle; the try goes on.
class HostConnector : public std::enable_shared_from_this<HostConnector> {
 public:
  /// Either a connected, non-blocking socket or an error, of the socket or the resolver domain; after the
  /// time-out a socket error of code ETIMEDOUT.
  using Completion = std::function<void(FileDescriptor, std::optional<FRXError>)>;

  /// `completion` is called once on the I/O thread, never inside this call. Without `timeout` the system's
  /// own limits hold. Thread: any
  static std::shared_ptr<HostConnector> start(HostNameResolver& resolver, const std::string& host,
                                              std::uint16_t port,
                                              std::optional<std::chrono::milliseconds> timeout,
                                              Completion completion);
  ~HostConnector();

  /// No completion follows, except one that has already begun. Thread: any
  void cancel();

 private:
  HostConnector(IOThread& thread, Completion completion);
  void startDeadline(std::chrono::milliseconds timeout);
  void race(std::vector<SocketAddress> addresses);
  void complete(FileDescriptor socket, std::optional<FRXError> error);

  IOThread& thread_;
  // Touched by the I/O thread alone.
  Completion completion_;
  std::shared_ptr<ConnectionRace> race_;
  std::optional<IOThread::Id> deadline_;
};

}  // namespace ferrox

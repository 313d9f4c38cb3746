// A socket for single multicast DNS packets on one interface and address family, beside the stack's own.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/DNSSD/BackEnd.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::dnssd {

/// Thread: one at a time
class FRX_EXPORT MulticastSocket {
 public:
  enum class Kind {
    /// From a port of its own: answers come straight back (RFC 6762 section 6.7).
    OneShot,
    /// From port 5353, shared with whatever stacks run here: answers go to everyone, and this socket gets
    /// whatever goes to the group on this very interface.
    Shared,
    /// As Shared, but the packets do not leave this machine.
    ThisHostOnly,
  };

  /// Empty when the interface is gone or the system refuses, with the reason in errno.
  static std::unique_ptr<MulticastSocket> open(const Place& place, Kind kind);
  ~MulticastSocket();
  MulticastSocket(const MulticastSocket&) = delete;
  MulticastSocket& operator=(const MulticastSocket&) = delete;

  /// False with the reason in errno.
  bool send(std::string_view packet);
  /// The next packet that has arrived, without waiting.
  std::optional<std::string> receive(SocketAddress* from = nullptr);
  int descriptor() const { return descriptor_; }

 private:
  MulticastSocket(int descriptor, const Place& place) : descriptor_(descriptor), place_(place) {}

  int descriptor_;
  Place place_;
};

}  // namespace ferrox::dnssd

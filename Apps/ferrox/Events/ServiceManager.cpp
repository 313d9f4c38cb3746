#include "Apps/ferrox/Events/ServiceManager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Platform/Log/Log.h"

namespace ferrox::command {
namespace {

constexpr const char* variable = "NOTIFY_SOCKET";
/// A manager whose queue is full is busy, not gone.
constexpr timeval patience{3, 0};

struct Address {
  sockaddr_un socket{};
  socklen_t size = 0;
};

std::optional<Address> addressFrom(const std::string& text) {
  Address address;
  const bool known = text.size() > 1 && (text.front() == '/' || text.front() == '@');
  if (!known || text.size() >= sizeof address.socket.sun_path) return std::nullopt;
  address.socket.sun_family = AF_UNIX;
  std::copy(text.begin(), text.end(), address.socket.sun_path);
  if (text.front() == '@') address.socket.sun_path[0] = '\0';
  // Without a terminating zero, which would be a part of an abstract name (unix(7)).
  address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size());
  return address;
}

/// 0, or the error's number.
int send(const Address& address, const std::string& state) {
  const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  const ssize_t sent = sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr*>(&address.socket), address.size);
  const int error = sent < 0 ? errno : 0;
  ::close(descriptor);
  return error;
}

}  // namespace

ServiceManager ServiceManager::ofEnvironment() {
  const char* const address = std::getenv(variable);
  ServiceManager manager(address == nullptr ? std::nullopt : std::optional<std::string>(address));
  unsetenv(variable);
  return manager;
}

void ServiceManager::tellReady(std::string_view status) const {
  std::string line(status);
  // Lines are what parts one assignment from the next.
  std::replace(line.begin(), line.end(), '\n', ' ');
  tell("READY=1\nSTATUS=" + line);
}

void ServiceManager::tellStopping() const { tell("STOPPING=1"); }

void ServiceManager::tell(const std::string& state) const {
  if (!address_ || address_->empty()) return;
  const auto address = addressFrom(*address_);
  if (!address) {
    FRX_LOG_WARN("NOTIFY_SOCKET is neither a path nor an abstract name: " + *address_);
    return;
  }
  const int error = send(*address, state);
  if (error != 0) FRX_LOG_WARN("The service manager was not told: " + std::string(std::strerror(error)));
}

}  // namespace ferrox::command

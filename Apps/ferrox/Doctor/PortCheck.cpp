#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/SocketOwners.h"

namespace ferrox::command {
namespace {

// 0, or the system's error code. A node listens for both families at once where there is IPv6.
int tryToListen(int family, std::uint16_t port) {
  const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  const int on = 1, off = 0;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (family == AF_INET6) setsockopt(descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  sockaddr_storage address{};
  address.ss_family = static_cast<sa_family_t>(family);
  // The port stands at the same place in both forms.
  reinterpret_cast<sockaddr_in&>(address).sin_port = htons(port);
  const socklen_t length = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  int error = 0;
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      listen(descriptor, 1) != 0) {
    error = errno;
  }
  close(descriptor);
  return error;
}

int tryToListen(std::uint16_t port) {
  const int error = tryToListen(AF_INET6, port);
  return error == 0 || error == EADDRINUSE ? error : tryToListen(AF_INET, port);
}

Finding portIsTaken(std::uint16_t port, FRXDictionary facts) {
  std::string owners;
  FRXArray programs;
  for (const std::string& program : ownersOfPort(SocketKind::ListeningTCP, port).programs) {
    owners += (owners.empty() ? " by " : ", ") + program;
    programs.emplace_back(program);
  }
  facts["programs"] = std::move(programs);
  return {Verdict::Note,
          fmt::format("port {} is taken{}, perhaps by a node that runs already; another node needs --port",
                      port, owners),
          std::move(facts)};
}

}  // namespace

Examination examinePort(std::uint16_t port) {
  Examination out{"port", "HTTP port", {}};
  const int error = tryToListen(port);
  const FRXDictionary facts{{"port", port}, {"free", error == 0}};
  if (error == 0) {
    out.findings.push_back({Verdict::Good, fmt::format("port {} is free", port), facts});
  } else if (error == EADDRINUSE) {
    out.findings.push_back(portIsTaken(port, facts));
  } else {
    out.findings.push_back({Verdict::Bad,
                            fmt::format("cannot listen on port {}: {}", port, std::strerror(error)), facts,
                            "choose another --port, above 1023 unless this user may use lower ones"});
  }
  return out;
}

}  // namespace ferrox::command

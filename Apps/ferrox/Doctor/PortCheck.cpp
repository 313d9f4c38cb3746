#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Apps/ferrox/Doctor/Checks.h"

namespace ferrox::command {
namespace {

// 0, or the system's error code.
int tryToListen(std::uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  int error = 0;
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(descriptor, 1) != 0) {
    error = errno;
  }
  close(descriptor);
  return error;
}

}  // namespace

Examination examinePort(std::uint16_t port) {
  Examination out{"port", "HTTP port", {}};
  const int error = tryToListen(port);
  const FRXDictionary facts{{"port", port}, {"free", error == 0}};
  if (error == 0) {
    out.findings.push_back({Verdict::Good, fmt::format("port {} is free", port), facts});
  } else if (error == EADDRINUSE) {
    out.findings.push_back({Verdict::Note,
                            fmt::format("port {} is taken, perhaps by a node that runs already; "
                                        "another node needs --port",
                                        port),
                            facts});
  } else {
    out.findings.push_back(
        {Verdict::Bad, fmt::format("cannot listen on port {}: {}", port, std::strerror(error)), facts});
  }
  return out;
}

}  // namespace ferrox::command

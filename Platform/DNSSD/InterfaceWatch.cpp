#include "Platform/DNSSD/InterfaceWatch.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>

#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto quietTime = 150ms;
constexpr auto pollInterval = 3s;

int openNetlink() {
  const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (fd < 0) return -1;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  ::close(fd);
  return -1;
}

}  // namespace

InterfaceWatch::InterfaceWatch(DiscoveryThread& thread, std::function<void()> changed)
    : thread_(thread), changed_(std::move(changed)) {}

InterfaceWatch::~InterfaceWatch() { stop(); }

void InterfaceWatch::start() {
  socket_ = openNetlink();
  if (socket_ >= 0) watch_ = thread_.watchReadable(socket_, [this] { drain(); });
  if (watch_) return;
  FRX_LOG_DEBUG(std::string("The kernel does not tell about interfaces; looking now and then"));
  poll();
}

void InterfaceWatch::stop() {
  watch_.reset();
  delay_.reset();
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
}

void InterfaceWatch::drain() {
  // What exactly changed does not matter: the interfaces are read anew. Neither does a lost message.
  std::array<char, 16384> buffer;
  while (::recv(socket_, buffer.data(), buffer.size(), 0) > 0) {
  }
  callSoon();
}

void InterfaceWatch::callSoon() {
  if (delay_) return;
  delay_ = thread_.after(quietTime, [this] {
    delay_.reset();
    changed_();
  });
}

void InterfaceWatch::poll() {
  delay_ = thread_.after(pollInterval, [this] {
    changed_();
    poll();
  });
}

}  // namespace ferrox::dnssd

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "Apps/ferrox/Events/ServiceManager.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::command {
namespace {

/// What a service manager listens on. `name` as in NOTIFY_SOCKET.
class Manager {
 public:
  explicit Manager(const std::string& name) : descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path);
    if (name.front() == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size), 0);
  }
  ~Manager() { ::close(descriptor_); }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;

  /// A datagram is there as soon as it was sent. Empty when there is none.
  std::string next() const {
    std::array<char, 4096> text{};
    const ssize_t size = recv(descriptor_, text.data(), text.size(), MSG_DONTWAIT);
    return size < 0 ? "" : std::string(text.data(), static_cast<std::size_t>(size));
  }

 private:
  int descriptor_;
};

TEST(ServiceManager, IsToldOfTheStartAndOfTheEnd) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.path().string() + "/notify";
  const Manager manager(path);
  const ServiceManager told(path);
  told.tellReady("runs on port 16654");
  EXPECT_EQ(manager.next(), "READY=1\nSTATUS=runs on port 16654");
  told.tellStopping();
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_EQ(manager.next(), "");
}

TEST(ServiceManager, ListensUnderAnAbstractNameToo) {
  const std::string name = "@ferrox-test-" + std::to_string(getpid());
  const Manager manager(name);
  ServiceManager(name).tellStopping();
  EXPECT_EQ(manager.next(), "STOPPING=1");
}

TEST(ServiceManager, GetsOneLineOfStatusWhateverItHolds) {
  const std::string name = "@ferrox-test-status-" + std::to_string(getpid());
  const Manager manager(name);
  ServiceManager(name).tellReady("Suite 3\nMAINPID=1");
  EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Suite 3 MAINPID=1");
}

TEST(ServiceManager, IsTakenOutOfTheEnvironment) {
  const std::string name = "@ferrox-test-environment-" + std::to_string(getpid());
  const Manager manager(name);
  setenv("NOTIFY_SOCKET", name.c_str(), 1);
  const ServiceManager told = ServiceManager::ofEnvironment();
  EXPECT_EQ(getenv("NOTIFY_SOCKET"), nullptr);
  told.tellStopping();
  EXPECT_EQ(manager.next(), "STOPPING=1");
  ServiceManager::ofEnvironment().tellStopping();
  EXPECT_EQ(manager.next(), "");
}

TEST(ServiceManager, WhoseAddressIsOfNoUseIsLeftAlone) {
  const std::string tooLong = "/" + std::string(sizeof(sockaddr_un::sun_path), 'x');
  for (const std::string& address :
       {std::string(), std::string("/"), std::string("@"), std::string("relative"), std::string("vsock:2:9"),
        tooLong, std::string("/no/such/socket")}) {
    ServiceManager(address).tellReady("");
    ServiceManager(address).tellStopping();
  }
}

TEST(ServiceManager, ThatTakesNothingIsNotWaitedForForEver) {
  const std::string name = "@ferrox-test-full-" + std::to_string(getpid());
  const Manager manager(name);
  const ServiceManager told(name);
  const int filler = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  name.copy(address.sun_path + 1, sizeof address.sun_path - 1, 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  while (sendto(filler, "x", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), size) == 1) {
  }
  EXPECT_EQ(errno, EAGAIN);
  ::close(filler);
  told.tellStopping();
  EXPECT_EQ(manager.next(), "x");
}

}  // namespace
}  // namespace ferrox::command

// A node inside a program that has an event loop already. Here that loop is poll(2), over standard input and
// the library: every line that is typed goes to all peers, and those of the peers are printed.
#include <poll.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <string>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/RunLoop/RunLoop.h"

using namespace ferrox;

namespace {

void startNode(const std::string& serviceName) {
  const auto server = FRXServer::sharedInstance();
  server->republishBonjourWithServiceName(serviceName);
  FRXError error;
  if (!server->start(&error)) {
    std::cerr << error.localizedDescription << std::endl;
    return;
  }
  server->startHeartbeatTimer();
  FRXBrowser::sharedInstance()->setChecksNewServicesAtOnce(true);
  FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
  std::cout << "ready" << std::endl;
}

/// False at the end of the input.
bool postTypedLines() {
  static std::string typed;
  std::array<char, 4096> piece{};
  const ssize_t size = read(STDIN_FILENO, piece.data(), piece.size());
  if (size <= 0) return false;
  typed.append(piece.data(), static_cast<std::size_t>(size));
  for (std::size_t end = typed.find('\n'); end != std::string::npos; end = typed.find('\n')) {
    FRXNotificationCenter::sharedCenter()->postOutgoingNotification("Line", {{"text", typed.substr(0, end)}},
                                                                    std::nullopt, false);
    typed.erase(0, end + 1);
  }
  return true;
}

void runUntilEndOfInput() {
  RunLoop& loop = RunLoop::main();
  std::array<pollfd, 2> watched{{{loop.descriptor(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  for (;;) {
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    if (watched[0].revents != 0) loop.runPending();
    if (watched[1].revents != 0 && !postTypedLines()) return;
  }
}

}  // namespace

int main() {
  const auto lines = FRXNotificationCenter::sharedCenter()->addObserver(
      "Line", std::nullopt, [](const LocalNotification& received) {
        const auto text = received.userInfo.find("text");
        if (text == received.userInfo.end() || text->second.asText() == nullptr) return;
        std::cout << *text->second.asText() << std::endl;
      });
  const auto connections = NotificationDispatcher::defaultCenter().addObserver(
      FRXConnectedNotification, nullptr,
      [](const LocalNotification&) { std::cout << "connected" << std::endl; });
  const auto server = FRXServer::sharedInstance();
  server->setPort(0);
  // The name is made on a background thread; all else happens on this one.
  server->createNewServiceName(
      [](const std::string& name) { RunLoop::main().post([name] { startNode(name); }); });
  runUntilEndOfInput();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  server->stop();
}

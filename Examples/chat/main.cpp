// A chat: what is typed goes to all peers, and what they type is printed. Who comes later gets the last line.
#include <algorithm>
#include <iostream>
#include <string>
#include <thread>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Platform/RunLoop/RunLoop.h"

using namespace ferrox;

namespace {

constexpr const char* lineName = "ChatLine";

/// Peers may send anything, and a terminal obeys control characters.
std::string printable(std::string text) {
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  std::replace_if(text.begin(), text.end(), isControl, ' ');
  // Those of two bytes (U+0080 to U+009F).
  for (std::size_t at = text.find('\xc2'); at != std::string::npos; at = text.find('\xc2', at + 1)) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xa0) text.replace(at, 2, "  ");
  }
  return text;
}

/// The published name of a node ends with that of its computer.
std::string shortName(const std::string& serviceName) {
  return printable(serviceName.substr(serviceName.rfind('/') + 1));
}

struct Guests final : FRXBrowserDelegate {
  void remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& peer) override {
    std::cout << "* " << shortName(peer->name().value_or("")) << " is here" << std::endl;
  }
  void remoteFRXServiceBecameUnresponsive(const std::shared_ptr<FRXNetService>& peer) override {
    std::cout << "* " << shortName(peer->name().value_or("")) << " does not answer" << std::endl;
  }
  void remoteFRXServiceRemoved(const std::shared_ptr<FRXNetService>& peer) override {
    std::cout << "* " << shortName(peer->name().value_or("")) << " is gone" << std::endl;
  }
};

void printLine(const LocalNotification& received) {
  // The center adds the sender; what else is there, and of what kind, is up to the peer.
  const auto text = received.userInfo.find("text");
  if (text == received.userInfo.end() || text->second.asText() == nullptr) return;
  std::cout << shortName(*received.userInfo.at("sender").asText()) << ": "
            << printable(*text->second.asText()) << std::endl;
}

/// Until the end of the input. Posting may be done on any thread.
void postTypedLines() {
  for (std::string line; std::getline(std::cin, line);) {
    FRXNotificationCenter::sharedCenter()->postOutgoingNotification(lineName, {{"text", line}}, std::nullopt,
                                                                    true);
  }
  RunLoop::main().post([] { RunLoop::main().stop(); });
}

}  // namespace

int main() {
  const auto guests = std::make_shared<Guests>();
  const auto server = FRXServer::sharedInstance();
  const auto lines = FRXNotificationCenter::sharedCenter()->addObserver(lineName, std::nullopt, printLine);
  server->setPort(0);
  server->createNewServiceName([&](const std::string& name) {
    RunLoop::main().post([&, name] {
      server->republishBonjourWithServiceName(name);
      if (!server->start()) return RunLoop::main().stop();
      server->startHeartbeatTimer();
      FRXBrowser::sharedInstance()->setDelegate(guests);
      FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
    });
  });
  std::thread typing(postTypedLines);
  RunLoop::main().run();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  server->stop();
  typing.join();
}

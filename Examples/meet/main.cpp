// Announces itself, finds the neighbours, and says hello to each of them.
#include <iostream>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Platform/RunLoop/RunLoop.h"

using namespace ferrox;

struct Neighbours final : FRXBrowserDelegate {
  void remoteFRXServiceBecameResponsive(const std::shared_ptr<FRXNetService>& peer) override {
    std::cout << "met " << peer->name().value_or("") << std::endl;
  }
};

int main() {
  const auto neighbours = std::make_shared<Neighbours>();
  const auto server = FRXServer::sharedInstance();
  const auto center = FRXNotificationCenter::sharedCenter();
  const auto hellos = center->addObserver("Hello", std::nullopt, [](const LocalNotification& hello) {
    std::cout << "hello from " << *hello.userInfo.at("sender").asText() << std::endl;
  });
  server->setPort(0);  // any free one
  server->createNewServiceName([&](const std::string& name) {
    RunLoop::main().post([&, name] {
      server->republishBonjourWithServiceName(name);
      if (!server->start()) return RunLoop::main().stop();
      server->startHeartbeatTimer();
      FRXBrowser::sharedInstance()->setDelegate(neighbours);
      FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
      center->postOutgoingNotification("Hello", {{"from", "meet"}}, std::nullopt, true);
    });
  });
  RunLoop::main().run();
}

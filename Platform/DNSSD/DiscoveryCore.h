// What the main-thread objects of discovery share: the thread, the engine on it, and the way back.
#pragma once

#include <functional>
#include <memory>

#include "Platform/DNSSD/DiscoveryEngine.h"
#include "Platform/DNSSD/DiscoveryThread.h"
#include "Platform/RunLoop/MainLoopLink.h"

namespace ferrox::dnssd {

/// Kept alive by every browser, handle and publication, which may thus outlive the stack: their wishes are
/// then dropped. Thread: any
struct DiscoveryCore {
  DiscoveryCore(RunLoop& loop, std::shared_ptr<DiscoveryThread> discoveryThread)
      : mainLoop(loop), toMain(std::make_shared<MainLoopLink>(loop)), thread(std::move(discoveryThread)) {}

  /// Runs `wish` on the discovery thread, unless the engine has been stopped by then.
  static void post(const std::shared_ptr<DiscoveryCore>& core, std::function<void(DiscoveryEngine&)> wish) {
    core->thread->post([core, wish = std::move(wish)] {
      if (core->engine) wish(*core->engine);
    });
  }

  RunLoop& mainLoop;
  const std::shared_ptr<MainLoopLink> toMain;
  const std::shared_ptr<DiscoveryThread> thread;
  /// Touched on the discovery thread only.
  std::unique_ptr<DiscoveryEngine> engine;
};

}  // namespace ferrox::dnssd

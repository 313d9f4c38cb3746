#include "Platform/DNSSD/DiscoveryBrowser.h"

#include <cassert>
#include <utility>

#include "Platform/DNSSD/DiscoveredService.h"
#include "Platform/DNSSD/HostNameText.h"

namespace ferrox::dnssd {

/// One search from its beginning to its end; events of an earlier one find it stopped.
struct DiscoveryBrowser::Search : std::enable_shared_from_this<DiscoveryBrowser::Search> {
  Search(DiscoveryBrowser& browser, std::shared_ptr<DiscoveryCore> discovery, std::string serviceType,
         std::string serviceDomain)
      : owner(&browser),
        core(std::move(discovery)),
        type(std::move(serviceType)),
        domain(std::move(serviceDomain)) {}

  void begin() {
    auto sink = [toMain = core->toMain, weak = weak_from_this()](BrowseChanges changes) {
      toMain->post([weak, changes = std::move(changes)] {
        if (const auto self = weak.lock()) self->deliver(changes);
      });
    };
    DiscoveryCore::post(core, [place = session, searchType = type, searchDomain = domain,
                               sink = std::move(sink)](DiscoveryEngine& engine) {
      *place = std::make_shared<BrowseSession>(engine.context(), searchType, searchDomain, sink);
      engine.add(*place);
    });
  }

  void end() {
    owner = nullptr;
    DiscoveryCore::post(core, [place = session](DiscoveryEngine& engine) {
      engine.remove(*place);
      place->reset();
    });
  }

  // Removals first, so that the end of a batch falls on what was found.
  void deliver(const BrowseChanges& changes) {
    std::size_t left = changes.removed.size() + changes.added.size();
    for (const std::string& name : changes.removed) {
      const auto known = services.find(name);
      --left;
      if (known == services.end()) continue;
      const std::shared_ptr<NetService> service = known->second;
      services.erase(known);
      tell([&](NetServiceBrowserListener& listener) {
        listener.netServiceBrowserDidRemoveService(service, left > 0);
      });
    }
    for (const std::string& name : changes.added) {
      const auto service = DiscoveredService::make(core, {name, type, domain});
      services[name] = service;
      --left;
      tell([&](NetServiceBrowserListener& listener) {
        listener.netServiceBrowserDidFindService(service, left > 0);
      });
    }
  }

  // A listener may stop the browser, or drop it, in the middle of a batch.
  template <class Call>
  void tell(const Call& call) {
    if (owner == nullptr) return;
    if (const auto listener = owner->listener_.lock()) call(*listener);
  }

  DiscoveryBrowser* owner;
  std::shared_ptr<DiscoveryCore> core;
  std::string type;
  std::string domain;
  std::map<std::string, std::shared_ptr<DiscoveredService>> services;
  std::shared_ptr<std::shared_ptr<BrowseSession>> session =
      std::make_shared<std::shared_ptr<BrowseSession>>();
};

DiscoveryBrowser::DiscoveryBrowser(std::shared_ptr<DiscoveryCore> core) : core_(std::move(core)) {}

DiscoveryBrowser::~DiscoveryBrowser() { stop(); }

void DiscoveryBrowser::setDelegate(std::weak_ptr<NetServiceBrowserListener> listener) {
  listener_ = std::move(listener);
}

void DiscoveryBrowser::searchForServices(const std::string& type, const std::string& domain) {
  assert(core_->mainLoop.isCurrentThread());
  stop();
  const std::string searchedDomain = domain.empty() ? "local" : lowerCaseHostName(domain);
  const std::string searchedType = type.ends_with('.') ? type.substr(0, type.size() - 1) : type;
  search_ = std::make_shared<Search>(*this, core_, searchedType, searchedDomain);
  search_->begin();
}

void DiscoveryBrowser::stop() {
  if (!search_) return;
  std::exchange(search_, nullptr)->end();
}

}  // namespace ferrox::dnssd

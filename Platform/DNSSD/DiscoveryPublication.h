// A published service, as its owner sees it.
#pragma once

#include <memory>

#include "Platform/DNSSD/DiscoveryCore.h"
#include "Platform/DNSSD/PublishSession.h"

namespace ferrox::dnssd {

/// Thread: any
class DiscoveryPublication final : public NetServicePublication {
 public:
  DiscoveryPublication(std::shared_ptr<DiscoveryCore> core, PublicationRequest request);
  /// Waits a moment for the goodbye to be on the wire, so that a process may end right afterwards.
  ~DiscoveryPublication() override;

  void setTXTRecord(TXTDictionary txt) override;

 private:
  std::shared_ptr<DiscoveryCore> core_;
  /// Filled and used on the discovery thread; empty when the request was refused.
  std::shared_ptr<std::shared_ptr<PublishSession>> session_;
};

}  // namespace ferrox::dnssd

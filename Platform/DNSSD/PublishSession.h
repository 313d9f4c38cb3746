// Keeps one service published, through conflicts and losses of the stack.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Platform/Base/FRXError.h"
#include "Platform/DNSSD/Session.h"

namespace ferrox::dnssd {

/// Thread: discovery
class PublishSession final : public Session {
 public:
  struct Sinks {
    std::function<void(const std::string& finalName)> published;
    std::function<void(const FRXError& error)> failed;
  };

  PublishSession(DiscoveryContext& context, ServiceRecords records, Sinks sinks);

  void setTXT(std::string rdata);

  void publishingStarted() override { publish(); }
  void publishingStopped() override;
  void interfacesChanged() override;
  void close() override;

 private:
  void publish();
  void republish();
  void retryLater();
  void rename();
  void handle(GroupEvent event);

  DiscoveryContext& context_;
  ServiceRecords records_;
  Sinks sinks_;
  std::unique_ptr<ServiceGroup> group_;
  std::unique_ptr<Pending> retry_;
  std::string reportedName_;
  int failures_ = 0;
  int renamings_ = 0;
  bool closed_ = false;
};

}  // namespace ferrox::dnssd

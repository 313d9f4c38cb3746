// Carries what a stack reports into a turn of its own.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Platform/DNSSD/DiscoveryThread.h"

namespace ferrox::dnssd {

/// What a report leads to may free the very object that is reporting, which Avahi's callbacks do not allow.
/// Reports still on their way when the reporter is destroyed are dropped. Thread: discovery
template <class Report>
class Reporter {
 public:
  Reporter(DiscoveryThread& thread, std::function<void(const Report&)> handler)
      : thread_(thread), handler_(std::make_shared<std::function<void(const Report&)>>(std::move(handler))) {}

  void report(Report report) {
    thread_.post([weak = std::weak_ptr(handler_), report = std::move(report)] {
      if (const auto handler = weak.lock()) (*handler)(report);
    });
  }

 private:
  DiscoveryThread& thread_;
  std::shared_ptr<std::function<void(const Report&)>> handler_;
};

}  // namespace ferrox::dnssd

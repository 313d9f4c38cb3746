// A look-up that survives the loss and return of the stack below it.
#pragma once

#include <functional>
#include <memory>

#include "Platform/DNSSD/Session.h"
#include "Platform/DNSSD/Sightings.h"

namespace ferrox::dnssd {

/// Keeps the table of what the look-up sees and calls `changed` after each change of it. When the stack
/// comes back, what was seen before counts until the new look-up had time to see it again, so that only real
/// differences show. Thread: discovery
class SightingWatch {
 public:
  using Opener = std::function<std::unique_ptr<Lookup>(BackEnd&, BackEnd::LookupHandler)>;

  SightingWatch(DiscoveryContext& context, Opener opener, std::function<void()> changed);

  /// Opens the look-up when it is possible and not open already.
  void open();
  /// Ends the look-up and keeps the table.
  void suspend();
  /// Ends the look-up and forgets what it saw.
  void close();

  bool isOpen() const { return lookup_ != nullptr; }
  const Sightings& sightings() const { return sightings_; }

 private:
  void handle(const LookupReport& report);
  void openLater();

  DiscoveryContext& context_;
  Opener opener_;
  std::function<void()> changed_;
  Sightings sightings_;
  std::unique_ptr<Lookup> lookup_;
  std::unique_ptr<Pending> staleDeadline_;
  std::unique_ptr<Pending> retry_;
};

}  // namespace ferrox::dnssd

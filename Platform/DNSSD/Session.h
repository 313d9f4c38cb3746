// What all tasks that discovery performs for its users have in common.
#pragma once

#include "Platform/DNSSD/BackEnd.h"
#include "Platform/DNSSD/DiscoveryThread.h"

namespace ferrox::dnssd {

/// Shared by the engine with its sessions. Thread: discovery
struct DiscoveryContext {
  DiscoveryThread& thread;
  BackEnd& backEnd;
  InterfaceSelection interfaces;
  bool canLookUp = false;
  bool canPublish = false;
};

/// One thing a user asked for. The engine tells it what happens to the stack below; after `close()` it holds
/// nothing of the stack any more and stays silent. Thread: discovery
class Session {
 public:
  virtual ~Session() = default;
  virtual void lookupsStarted() {}
  virtual void lookupsStopped() {}
  virtual void publishingStarted() {}
  virtual void publishingStopped() {}
  virtual void interfacesChanged() {}
  /// Ask the network again now.
  virtual void refresh() {}
  virtual void close() = 0;
};

}  // namespace ferrox::dnssd

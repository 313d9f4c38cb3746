// A subcommand that asks or tells everybody who is there, once, and ends.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Apps/ferrox/Commands/Gathering.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Node/Node.h"

namespace ferrox::command {

/// Starts a node, waits until everybody is there, does its work, ends the node and tells the outcome.
class GatheringCommand : public Subcommand, public NodeListener {
 public:
  int run() override;

  void nodeFailed(const std::string& reason) override;
  void localServiceStarted(const std::string&) override { gathering_->becameVisible(); }
  void peerDiscovered(const Peer&) override { gathering_->peersChanged(); }
  void peerRemoved(const Peer&) override { gathering_->peersChanged(); }
  void peerChangedState(const Peer&) override { gathering_->peersChanged(); }
  void connectionChanged(const ConnectionEvent&) override { gathering_->peersChanged(); }

 protected:
  /// `closingTime`: how long peers may take to confirm the end of their connections.
  explicit GatheringCommand(std::chrono::milliseconds closingTime) : closingTime_(closingTime) {}

  /// Adds --wait and the options of a node.
  void declareGatheringOptions(CommandLine& line);
  /// Everybody is there, or the time is up. Ends with `finish()`, at once or later.
  virtual void gathered() = 0;
  /// Whether there is an outcome to tell although it was interrupted.
  virtual bool hasOutcome() const = 0;
  /// Tells it; an exit code.
  virtual int report() const = 0;
  void finish();

  Node& node() const { return *node_; }
  bool everybodyIsConnected() const { return gathering_->everybodyIsConnected(); }
  bool writesJson() const { return setup_.options.json; }
  const NodeOptions& nodeOptions() const { return setup_.options; }
  double waitSeconds() const { return wait_; }

 private:
  const std::chrono::milliseconds closingTime_;
  NodeSetup setup_;
  double wait_ = 3.0;
  std::shared_ptr<Node> node_;
  std::unique_ptr<Gathering> gathering_;
  bool interrupted_ = false;
  std::optional<std::string> failure_;
};

}  // namespace ferrox::command

// The streams and projects of a running node.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Apps/ferrox/Node/Offers.h"

namespace ferrox {
class FRXProjectSharingCapability;
class FRXServer;
class FRXStreamingCapability;
}  // namespace ferrox

namespace ferrox::command {

struct StreamOffer {
  Offer offer;
  /// "video-angle" or "moments-data".
  std::string contentType;
  /// What follows "/streams/"; the id without it.
  std::optional<std::string> servedPath;
  /// 0 stands for the server's.
  std::uint16_t port = 0;
};

struct ProjectOffer {
  Offer offer;
  std::uint16_t port = 0;
};

/// With `broadcast` the peers that are connected are told at once. Thread: main
class NodeOffers {
 public:
  /// Both capabilities become the server's, whose port is known by now.
  explicit NodeOffers(FRXServer& server);

  /// Those of the command line.
  void addAll(const Offers& offers);

  /// The stream's key, by which it is removed; nothing, with `problem` saying why, when it is refused.
  std::optional<std::string> addStream(const StreamOffer& stream, bool broadcast, std::string& problem);
  bool removeStream(const std::string& key, bool broadcast);
  /// False, with `problem` saying why, when it is refused.
  [[nodiscard]] bool addProject(const ProjectOffer& project, bool broadcast, std::string& problem);
  bool removeProject(const std::string& id, bool broadcast);

 private:
  std::shared_ptr<FRXStreamingCapability> streams_;
  std::shared_ptr<FRXProjectSharingCapability> projects_;
};

}  // namespace ferrox::command

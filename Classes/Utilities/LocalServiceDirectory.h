// How low layers ask who this instance is and which instances are known, without knowing server or browser.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace ferrox {

class FRXNetService;

/// The server and the browser register what they can answer; until then every answer is "nothing".
/// Thread: any; what is registered is called on the asking thread
class LocalServiceDirectory {
 public:
  using ServerIdSource = std::function<std::optional<std::string>()>;
  using ServiceLookup = std::function<std::shared_ptr<FRXNetService>(const std::string& serviceId)>;

  /// Answers the published service id of the local server. An empty function takes the answer away.
  static void setServerIdSource(ServerIdSource source);
  /// Answers the known instance that published this service id (the browser's `serviceWithId`).
  static void setServiceLookup(ServiceLookup lookup);

  static std::optional<std::string> frxServerId();
  static std::shared_ptr<FRXNetService> serviceWithId(const std::string& serviceId);
};

}  // namespace ferrox

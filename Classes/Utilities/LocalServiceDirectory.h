// How low layers ask who this instance is and which instances are known, without knowing server or browser.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

class FRXNetService;

/// The server and the browser register what they can answer; until then every answer is "nothing".
/// Thread: any; what is registered is called on the asking thread
class FRX_EXPORT LocalServiceDirectory {
 public:
  /// What the directory wants to know of the local server.
  struct LocalServer {
    std::string frxServerId;
    std::uint16_t port = 0;
  };
  using ServerSource = std::function<std::optional<LocalServer>()>;
  using ServiceLookup = std::function<std::shared_ptr<FRXNetService>(const std::string& serviceId)>;
  using SessionSource = std::function<std::string()>;

  /// Answers for the local server, nothing while there is none. An empty function takes the answer away.
  static void setServerSource(ServerSource source);
  /// Answers the known instance that published this service id (the browser's `serviceWithId`).
  static void setServiceLookup(ServiceLookup lookup);
  /// Answers the browsing session of this instance (the browser's `serviceSessionId`).
  static void setSessionSource(SessionSource source);

  /// The published service id of the local server.
  static std::optional<std::string> frxServerId();
  /// The port of the local server, 0 while there is none.
  static std::uint16_t serverPort();
  static std::shared_ptr<FRXNetService> serviceWithId(const std::string& serviceId);
  /// "" while there is none.
  static std::string serviceSessionId();
};

}  // namespace ferrox

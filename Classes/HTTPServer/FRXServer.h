// The host of the local instance: its embedded HTTP server, its published name and record, its capabilities.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/HTTPServer/ListCapabilitiesDelegate.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {

class HTTPServer;
struct PlatformServices;

/// Domain of errors that belong to no single operation.
inline constexpr std::string_view FRXGeneralErrorDomain = "com.ferrox.ErrorDomain";

/// The host application drives it: set the port, obtain a name, publish it, add capabilities, start, and
/// start the heartbeat. Nothing starts by itself.
/// Thread: main, unless said otherwise
class FRX_EXPORT FRXServer : public ListCapabilitiesDelegate {
 public:
  using ServiceNameCallback = std::function<void(const std::string& serviceName)>;

  /// The process's server, made on first use unless one was set, and registered as the routing layer's
  /// capabilities delegate. Messaging is put in its place as well. Thread: any
  static std::shared_ptr<FRXServer> sharedInstance();
  /// Replaces it; empty leaves the process without one. Thread: any
  static void setSharedInstance(std::shared_ptr<FRXServer> server);

  /// With an HTTP server of its own over the process's shared platform services.
  FRXServer();
  explicit FRXServer(const PlatformServices& services);
  /// Over a given HTTP server; an empty pointer in, an empty pointer out. Timers run on `loop`.
  static std::shared_ptr<FRXServer> initWithServer(std::shared_ptr<HTTPServer> httpServer,
                                                   RunLoop& loop = RunLoop::main());
  ~FRXServer() override;

  /// Peers assume 16654; 0 means any free port. Thread: any
  std::uint16_t port() const;
  void setPort(std::uint16_t port);
  /// Thread: any
  const std::shared_ptr<HTTPServer>& httpServer() const { return httpServer_; }

  FRXCapabilities capabilities() const override;
  /// False, changing nothing, when one of that name is there already, and for an empty pointer.
  bool addCapability(std::shared_ptr<FRXCapability> capability);
  bool removeCapabilityWithName(const std::string& name);

  /// Makes a fresh service name from the computer's name. `callback` runs on a background thread.
  void createNewServiceName(ServiceNameCallback callback);
  /// UUID-VERSION/NAME of at most 62 characters. Thread: any
  static std::string createServiceNameWithHostname(std::string_view hostName);
  /// Only letters, marks and digits, and blanks between words. Thread: any
  static std::string formatDeviceNameString(std::string_view name);
  /// Takes the name; publishes anew under it when the server runs.
  void republishBonjourWithServiceName(const std::string& serviceName);
  /// Rewrites the TXT record with this status, later, from a background thread. Thread: any
  void updateTxtRecordWithStatus(std::optional<std::string> status);
  /// The published service id; empty until a name is set. Thread: any
  std::string frxServerId() const;
  /// The computer's name as `createNewServiceName` found it last. Thread: any
  std::optional<std::string> hostName() const;

  /// Starts the outbound connections, then the HTTP server; false with `error` when the latter fails.
  [[nodiscard]] bool start(FRXError* error = nullptr);
  void stop();

  /// Rewrites the TXT record every 5.0 s, first after 5.0 s.
  void startHeartbeatTimer();
  void stopHeartbeatTimer();
  void broadcastHeartbeat();

 protected:
  /// An empty `httpServer` makes a server that cannot be started and answers empty values.
  FRXServer(std::shared_ptr<HTTPServer> httpServer, RunLoop& loop);

 private:
  struct Publication;

  const std::shared_ptr<HTTPServer> httpServer_;
  RunLoop& loop_;
  /// What background tasks and the heartbeat need; they may outlive the server.
  const std::shared_ptr<Publication> publication_;
  mutable std::mutex capabilitiesMutex_;
  FRXCapabilities internalCapabilities_;
  std::unique_ptr<Timer> heartbeatTimer_;
};

}  // namespace ferrox

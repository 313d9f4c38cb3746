// Tells the service manager that started this process how far it is (sd_notify(3)).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ferrox::command {

/// One datagram for each change to the socket that a manager such as systemd names in NOTIFY_SOCKET. Where
/// there is none, nothing happens. A manager that does not take it within a few seconds is not waited for.
/// Thread: main
class ServiceManager {
 public:
  /// Of the environment, from which it is taken out: processes started later are not the service.
  static ServiceManager ofEnvironment();
  /// `address` is a path, or an abstract name that begins with "@".
  explicit ServiceManager(std::optional<std::string> address) : address_(std::move(address)) {}

  /// The node can be reached; `status` is a line for people.
  void tellReady(std::string_view status) const;
  void tellStopping() const;

 private:
  void tell(const std::string& state) const;

  std::optional<std::string> address_;
};

}  // namespace ferrox::command

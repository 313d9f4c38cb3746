// Who this machine is: a stable UUID, the name people gave it, its serial number.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

/// The machine's identity, replaceable by the host before anything is started.
/// Thread: any
class FRX_EXPORT HostIdentity {
 public:
  virtual ~HostIdentity() = default;

  /// Upper-case 8-4-4-4-12 hexadecimal digits, the same at every start; nothing when no source exists.
  /// Never the raw machine id: that one is confidential (machine-id(5)), so it is keyed to this application.
  virtual std::optional<std::string> deviceUUID() const = 0;
  /// The name the user sees, such as "Edit Suite 3".
  virtual std::string computerName() const = 0;
  /// The host name without a domain, the label that is published as NAME.local.
  virtual std::string hostName() const = 0;
  virtual std::optional<std::string> serialNumber() const = 0;

  /// The identity in use: the machine's unless replaced.
  static std::shared_ptr<const HostIdentity> current();
  /// Replaces it; an empty pointer brings the machine's own back.
  static void setCurrent(std::shared_ptr<const HostIdentity> identity);
  static std::shared_ptr<const HostIdentity> ofMachine();
};

}  // namespace ferrox

// The identity that a Linux machine has by its own files.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "Platform/Base/Mutex.h"
#include "Platform/Host/HostIdentity.h"

namespace ferrox {

/// Where the identity is read from. Tests point it elsewhere.
struct MachineIdentityFiles {
  std::filesystem::path machineId = "/etc/machine-id";
  std::filesystem::path busMachineId = "/var/lib/dbus/machine-id";
  std::filesystem::path machineInfo = "/etc/machine-info";
  std::filesystem::path productSerial = "/sys/class/dmi/id/product_serial";
  /// Where an id is made up and kept when the machine has none; the user's state folder when absent. Nothing
  /// is kept when it is empty.
  std::optional<std::filesystem::path> stateFolder;
};

/// Thread: any
class MachineIdentity : public HostIdentity {
 public:
  explicit MachineIdentity(MachineIdentityFiles files = {});

  /// Read once and remembered, so that a file that goes away later does not change who this is.
  std::optional<std::string> deviceUUID() const override;
  std::string computerName() const override;
  std::string hostName() const override;
  std::optional<std::string> serialNumber() const override;

 private:
  std::optional<std::string> findMachineId() const;

  const MachineIdentityFiles files_;
  mutable Mutex mutex_;
  mutable std::optional<std::string> deviceUUID_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

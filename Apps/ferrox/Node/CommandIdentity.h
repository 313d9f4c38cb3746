// The machine's identity with those parts replaced that the command line names.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Host/HostIdentity.h"

namespace ferrox::command {

/// Thread: any
class CommandIdentity final : public HostIdentity {
 public:
  CommandIdentity(std::shared_ptr<const HostIdentity> machine, std::optional<std::string> deviceUUID,
                  std::optional<std::string> computerName, std::optional<std::string> hostName)
      : machine_(std::move(machine)),
        deviceUUID_(std::move(deviceUUID)),
        computerName_(std::move(computerName)),
        hostName_(std::move(hostName)) {}

  std::optional<std::string> deviceUUID() const override {
    return deviceUUID_ ? deviceUUID_ : machine_->deviceUUID();
  }
  std::string computerName() const override {
    return computerName_ ? *computerName_ : machine_->computerName();
  }
  std::string hostName() const override { return hostName_ ? *hostName_ : machine_->hostName(); }
  std::optional<std::string> serialNumber() const override { return machine_->serialNumber(); }

 private:
  std::shared_ptr<const HostIdentity> machine_;
  std::optional<std::string> deviceUUID_;
  std::optional<std::string> computerName_;
  std::optional<std::string> hostName_;
};

}  // namespace ferrox::command

// A machine identity that a test chooses, in use for the length of a scope.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/Host/HostIdentity.h"

namespace ferrox::test {

struct FakeHostIdentity : HostIdentity {
  std::optional<std::string> uuid = "01234567-89AB-CDEF-0123-456789ABCDEF";
  std::string computer = "Jane's MacBook Pro (Office)";

  std::optional<std::string> deviceUUID() const override { return uuid; }
  std::string computerName() const override { return computer; }
  std::string hostName() const override { return "janes-macbook"; }
  std::optional<std::string> serialNumber() const override { return "SERIAL"; }
};

class ScopedHostIdentity {
 public:
  explicit ScopedHostIdentity(FakeHostIdentity identity = {}) {
    HostIdentity::setCurrent(std::make_shared<FakeHostIdentity>(std::move(identity)));
  }
  ~ScopedHostIdentity() { HostIdentity::setCurrent(nullptr); }
  ScopedHostIdentity(const ScopedHostIdentity&) = delete;
  ScopedHostIdentity& operator=(const ScopedHostIdentity&) = delete;
};

}  // namespace ferrox::test

// Where the routing layer learns what this instance offers.
#pragma once

#include "Classes/Capabilities/FRXCapability.h"

namespace ferrox {

class ListCapabilitiesDelegate {
 public:
  virtual ~ListCapabilitiesDelegate() = default;
  /// A snapshot. Thread: any
  virtual FRXCapabilities capabilities() const = 0;
};

}  // namespace ferrox

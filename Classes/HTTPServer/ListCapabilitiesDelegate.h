// Where the routing layer learns what this instance offers.
#pragma once

#include "Classes/Capabilities/FRXCapability.h"
#include "Platform/Base/Export.h"

namespace ferrox {

/// Tells the routes of the HTTP server what may be asked for. Must outlive them.
class FRX_EXPORT ListCapabilitiesDelegate {
 public:
  virtual ~ListCapabilitiesDelegate() = default;
  /// A snapshot. Thread: any
  virtual FRXCapabilities capabilities() const = 0;
};

}  // namespace ferrox

// What an instance offers to the others.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// The name under which queries and answers carry streams.
inline constexpr std::string_view FRXCapabilityNameStreaming = "streaming";
/// The name under which they carry shared projects.
inline constexpr std::string_view FRXCapabilityNameProjectSharing = "projectsharing";

/// One kind of offer. Adding and removing offers and broadcasting belong to the main thread; `name` and
/// `jsonSerializableObject` are also called on network threads.
class FRX_EXPORT FRXCapability {
 public:
  virtual ~FRXCapability() = default;
  /// The offers as peers see them.
  virtual FRXValue jsonSerializableObject() const = 0;
  /// Tells all connected peers. Thread: main
  virtual void broadcastCapability() = 0;
  /// The member of the capabilities document; never changes.
  virtual std::string name() const = 0;
};

/// Capabilities by name.
using FRXCapabilities = std::map<std::string, std::shared_ptr<FRXCapability>, std::less<>>;

}  // namespace ferrox

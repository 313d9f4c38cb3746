#include "Classes/Capabilities/FRXStreamingCapability.h"

#include <utility>

namespace ferrox {

FRXStreamingCapability::FRXStreamingCapability(CapabilityParts parts)
    : OfferingCapability(FRXCapabilityNameStreaming, FRXStreamingCapabilityNotification, "streams",
                         std::move(parts)) {}

bool FRXStreamingCapability::addStream(const std::shared_ptr<FRXStream>& stream, bool broadcastChange) {
  return add(stream, broadcastChange);
}

bool FRXStreamingCapability::removeStreamWithServedPath(std::string_view servedPath, bool broadcastChange) {
  return remove(servedPath, broadcastChange);
}

}  // namespace ferrox

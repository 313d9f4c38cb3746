#include "Classes/Capabilities/FRXStreamingCapability.h"

namespace ferrox {

bool FRXStreamingCapability::addStream(const std::shared_ptr<FRXStream>& stream, bool broadcastChange) {
  if (!streams_.add(stream)) return false;
  if (broadcastChange) broadcastCapability();
  return true;
}

bool FRXStreamingCapability::removeStreamWithServedPath(std::string_view servedPath, bool broadcastChange) {
  if (!streams_.remove(servedPath)) return false;
  if (broadcastChange) broadcastCapability();
  return true;
}

// Peers learn of the streams when they ask for the capabilities; there is no channel to announce them on yet.
void FRXStreamingCapability::broadcastCapability() {}

}  // namespace ferrox

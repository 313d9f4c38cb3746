#include "Classes/WebSockets/PeerConnector.h"

#include <utility>

#include "Platform/Base/Registration.h"

namespace ferrox {

std::shared_ptr<PeerConnector> PeerConnector::registered() { return Registration<PeerConnector>::current(); }

void PeerConnector::setRegistered(std::shared_ptr<PeerConnector> connector) {
  Registration<PeerConnector>::set(std::move(connector));
}

}  // namespace ferrox

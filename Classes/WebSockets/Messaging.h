// Puts the parts of messaging in their places.
#pragma once

#include "Platform/Base/Export.h"

namespace ferrox {

/// Registers the shared connection manager with the server and the browser, the shared notification center
/// with the sockets, and `FRXWebsocket` with the routing layer; whatever a host has registered before stays.
/// Done by `FRXServer::sharedInstance()`. Thread: any
FRX_EXPORT void installMessaging();

}  // namespace ferrox

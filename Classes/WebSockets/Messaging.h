// Puts the parts of messaging in their places.
#pragma once

namespace ferrox {

/// Registers the shared connection manager with the server and the browser, the shared notification center
/// with the sockets, and `FRXWebsocket` with the routing layer; whatever a host has registered before stays.
/// Done by `FRXServer::sharedInstance()`. Thread: any
void installMessaging();

}  // namespace ferrox

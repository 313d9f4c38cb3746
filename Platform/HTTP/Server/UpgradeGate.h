// Decides whether a request may become a WebSocket.
#pragma once

#include <string>

#include "Platform/HTTP/Server/HTTPServerLimits.h"
#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

/// 101 when the handshake is sound (RFC 6455 section 4.2.1) and comes from somebody who may; else the status
/// to refuse with: 400, 403 or 426. Thread: any
int judgeUpgrade(const RequestHead& head, const WebSocketAccess& access);

/// Whether a page cannot have made a browser use this `Host` for another machine's name: IP literals,
/// localhost, this machine's own name, names under .local and what the host application added.
bool isTrustedHost(std::string_view authority, const WebSocketAccess& access);

}  // namespace ferrox

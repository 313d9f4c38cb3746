// The server's key to what a connection handler shows but does not set itself.
#pragma once

#include "Platform/HTTP/Server/HTTPConnection.h"

namespace ferrox {

class HTTPServerConnectionAccess {
 public:
  static void setRequest(HTTPConnection& handler, const HTTPRequest* request) { handler.request_ = request; }
  static void clearBody(HTTPConnection& handler) { handler.body_.clear(); }
};

}  // namespace ferrox

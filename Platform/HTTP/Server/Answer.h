// Turns a handler's response and a request into bytes: status, header fields, ranges.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/HTTP/Server/BodyTransfer.h"
#include "Platform/HTTP/Server/HTTPResponse.h"
#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

/// Appends the response's head to `out`, and its body where that is small and at hand; returns the rest of
/// the body as a transfer, or nothing. `date` is the value of the Date header. Thread: network
std::unique_ptr<BodyTransfer> writeAnswer(std::string& out, const RequestHead& request,
                                          std::shared_ptr<HTTPResponse> response, bool keepAlive,
                                          std::string_view date);

/// A response of the server's own, without a body.
void writeRefusal(std::string& out, int status, std::string_view date, bool keepAlive, int minorVersion,
                  const HTTPHeaders& headers = {});

}  // namespace ferrox

// Turns a handler's response and a request into bytes: status, header fields, ranges.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/HTTP/Server/BodyTransfer.h"
#include "Platform/HTTP/Server/HTTPResponse.h"
#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

/// What became of a response.
struct WrittenAnswer {
  int status = 0;
  std::uint64_t fileBytes = 0;                   ///< of a file, appended already
  std::unique_ptr<BodyTransfer> body = nullptr;  ///< what has still to be sent, or nothing
};

/// Appends the response's head to `out`, and its body where that is small and at hand. `date` is the value of
/// the Date header. Thread: network
WrittenAnswer writeAnswer(std::string& out, const RequestHead& request,
                          std::shared_ptr<HTTPResponse> response, bool keepAlive, std::string_view date);

/// A response of the server's own, without a body.
void writeRefusal(std::string& out, int status, std::string_view date, bool keepAlive, int minorVersion,
                  const HTTPHeaders& headers = {});

}  // namespace ferrox

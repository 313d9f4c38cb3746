// An answer that is a status and nothing else.
#pragma once

#include <cstdint>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

/// Thread: any
class HTTPErrorResponse : public HTTPResponse {
 public:
  explicit HTTPErrorResponse(std::int32_t errorCode) : status_(errorCode) {}

  std::uint64_t contentLength() const override { return 0; }
  bool isDone() const override { return true; }
  int status() const override { return status_; }

 private:
  std::int32_t status_;
};

}  // namespace ferrox

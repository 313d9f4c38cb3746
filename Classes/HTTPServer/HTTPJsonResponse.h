// A JSON document held in memory.
#pragma once

#include "Platform/HTTP/Server/HTTPDataResponse.h"

namespace ferrox {

/// Thread: any
class HTTPJsonResponse : public HTTPDataResponse {
 public:
  using HTTPDataResponse::HTTPDataResponse;

  HTTPHeaders httpHeaders() const override { return {{"Content-Type", "application/json"}}; }
};

}  // namespace ferrox

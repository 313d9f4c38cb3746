// The answer to HEAD: how long the body of a GET would be.
#pragma once

#include <cstdint>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

/// Announces a length and has no body; never to be returned for another method than HEAD.
/// Thread: any
class HTTPHeadResponse : public HTTPResponse {
 public:
  explicit HTTPHeadResponse(std::uint64_t contentLength) : sizeInBytes_(contentLength) {}

  std::uint64_t sizeInBytes() const { return sizeInBytes_; }
  std::uint64_t contentLength() const override { return sizeInBytes_; }
  bool isDone() const override { return true; }

 private:
  std::uint64_t sizeInBytes_;
};

}  // namespace ferrox

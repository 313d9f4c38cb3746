// A body held in memory.
#pragma once

#include <string>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

class HTTPDataResponse : public HTTPResponse {
 public:
  explicit HTTPDataResponse(std::string data) : data_(std::move(data)) {}

  std::uint64_t contentLength() const override { return data_.size(); }
  std::uint64_t offset() const override { return offset_; }
  void setOffset(std::uint64_t offset) override { offset_ = offset; }
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() const override { return offset_ >= data_.size(); }
  const std::string* contiguousBody() const override { return &data_; }

 private:
  std::string data_;
  std::uint64_t offset_ = 0;
};

}  // namespace ferrox

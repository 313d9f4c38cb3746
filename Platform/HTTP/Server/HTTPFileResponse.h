// A file, or a stretch of one, as body.
#pragma once

#include <memory>
#include <string>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

/// Opens the file when made; check `isOpen`. Only regular files open. Byte ranges are served by the server
/// (206, 416) unless the response was made for a stretch of the file.
/// Thread: made on the disk pool, then network
class HTTPFileResponse : public HTTPResponse {
 public:
  explicit HTTPFileResponse(const std::string& path);
  /// Takes over an open descriptor.
  explicit HTTPFileResponse(int ownedDescriptor);
  ~HTTPFileResponse() override;
  HTTPFileResponse(const HTTPFileResponse&) = delete;
  HTTPFileResponse& operator=(const HTTPFileResponse&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  std::uint64_t fileSize() const { return fileSize_; }
  /// Limits the body to the bytes from `start` up to, not including, `end`, as far as they exist; the answer
  /// then is a plain 200 of that length.
  void restrictTo(std::uint64_t start, std::uint64_t end);

  std::uint64_t contentLength() const override { return regionLength_; }
  std::uint64_t offset() const override { return offset_; }
  void setOffset(std::uint64_t offset) override { offset_ = offset; }
  std::string readDataOfLength(std::size_t length) override;
  bool isDone() const override { return offset_ >= regionLength_; }
  HTTPFileRegion fileRegion() const override;
  bool supportsByteRanges() const override { return isOpen() && !restricted_; }
  std::optional<std::time_t> lastModified() const override;
  /// 404 when the file could not be opened.
  int status() const override { return isOpen() ? 200 : 404; }

 private:
  void measure();
  int descriptor_ = -1;
  std::uint64_t fileSize_ = 0;
  std::uint64_t regionStart_ = 0;
  std::uint64_t regionLength_ = 0;
  std::uint64_t offset_ = 0;
  std::time_t lastModified_ = 0;
  bool restricted_ = false;
};

}  // namespace ferrox

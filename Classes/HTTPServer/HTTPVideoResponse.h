// A file of a video stream, with the content type that players expect.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/HTTP/Server/HTTPFileResponse.h"

namespace ferrox {

class HTTPConnection;

/// Status, length and byte ranges are those of a file response.
/// Thread: made on the disk pool, then network
class HTTPVideoResponse : public HTTPFileResponse {
 public:
  /// An empty pointer when the file cannot be opened. The connection plays no part.
  static std::unique_ptr<HTTPVideoResponse> initWithFilePath(const std::string& path,
                                                             const HTTPConnection* connection = nullptr);
  /// Takes over an open file; its name's extension, compared exactly, decides on the content type.
  HTTPVideoResponse(int ownedDescriptor, std::string_view fileName);

  const std::string& mimeType() const { return mimeType_; }
  void setMimeType(std::string mimeType) { mimeType_ = std::move(mimeType); }
  HTTPHeaders httpHeaders() const override { return {{"Content-Type", mimeType_}}; }

 private:
  explicit HTTPVideoResponse(const std::string& path);

  std::string mimeType_;
};

}  // namespace ferrox

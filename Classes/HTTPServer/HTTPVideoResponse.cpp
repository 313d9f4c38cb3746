#include "Classes/HTTPServer/HTTPVideoResponse.h"

namespace ferrox {
namespace {

std::string mimeTypeOf(std::string_view fileName) {
  fileName.remove_prefix(fileName.rfind('/') + 1);
  const std::size_t dot = fileName.rfind('.');
  // A name that begins with its only dot is a hidden file without extension.
  const auto extension =
      dot == std::string_view::npos || dot == 0 ? std::string_view() : fileName.substr(dot + 1);
  if (extension == "m3u8") return "application/x-mpegURL";
  if (extension == "ts") return "video/MP2T";
  if (extension == "mov") return "video/quicktime";
  return "application/octet-stream";
}

}  // namespace

std::unique_ptr<HTTPVideoResponse> HTTPVideoResponse::initWithFilePath(const std::string& path,
                                                                       const HTTPConnection* connection) {
  (void)connection;
  std::unique_ptr<HTTPVideoResponse> response(new HTTPVideoResponse(path));
  if (!response->isOpen()) return nullptr;
  return response;
}

HTTPVideoResponse::HTTPVideoResponse(int ownedDescriptor, std::string_view fileName)
    : HTTPFileResponse(ownedDescriptor), mimeType_(mimeTypeOf(fileName)) {}

HTTPVideoResponse::HTTPVideoResponse(const std::string& path)
    : HTTPFileResponse(path), mimeType_(mimeTypeOf(path)) {}

}  // namespace ferrox

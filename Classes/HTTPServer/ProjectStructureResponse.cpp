#include "Classes/HTTPServer/ProjectStructureResponse.h"

#include <atomic>
#include <utility>

#include "Classes/HTTPServer/HTTPErrorResponse.h"
#include "Classes/HTTPServer/ProjectStructure.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

std::atomic<std::size_t> bytesOnTheirWay{0};

}  // namespace

std::unique_ptr<HTTPResponse> ProjectStructureResponse::make(const std::string& root, std::size_t budget) {
  constexpr std::int32_t internalServerError = 500;
  constexpr std::int32_t serviceUnavailable = 503;
  auto json = projectStructureJson(root);
  if (!json) return std::make_unique<HTTPErrorResponse>(internalServerError);
  const std::size_t size = json->size();
  const std::size_t others = bytesOnTheirWay.fetch_add(size);
  // From here on the response's end gives the room back.
  std::unique_ptr<HTTPResponse> response(new ProjectStructureResponse(std::move(*json)));
  if (others != 0 && others + size > budget) {
    FRX_LOG_WARN("Too many project structures on their way to list " + root);
    return std::make_unique<HTTPErrorResponse>(serviceUnavailable);
  }
  return response;
}

ProjectStructureResponse::~ProjectStructureResponse() { bytesOnTheirWay.fetch_sub(contentLength()); }

}  // namespace ferrox

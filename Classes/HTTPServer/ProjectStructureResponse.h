// The answer that lists a project.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "Classes/HTTPServer/HTTPJsonResponse.h"

namespace ferrox {

/// Documents of large projects are large themselves, and a peer that reads slowly keeps one in memory: all
/// that are on their way share a budget.
/// Thread: made on the disk pool, then network
class ProjectStructureResponse final : public HTTPJsonResponse {
 public:
  static constexpr std::size_t defaultBudget = std::size_t{512} << 20;

  /// Walks the project beneath `root`. A 500 answer when it is too large to be listed, a 503 answer when the
  /// documents on their way leave no room in the `budget` (bytes) for this one; alone it is always sent.
  static std::unique_ptr<HTTPResponse> make(const std::string& root, std::size_t budget = defaultBudget);
  ~ProjectStructureResponse() override;
  ProjectStructureResponse(const ProjectStructureResponse&) = delete;
  ProjectStructureResponse& operator=(const ProjectStructureResponse&) = delete;

 private:
  explicit ProjectStructureResponse(std::string json) : HTTPJsonResponse(std::move(json)) {}
};

}  // namespace ferrox

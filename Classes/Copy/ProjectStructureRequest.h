// Fetches a project's structure document from its peer.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Copy/ProjectStructureDocument.h"
#include "Classes/Copy/TransferRequest.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

/// The document is read while it arrives and never held as a text. To be used once. Thread: any
class ProjectStructureRequest {
 public:
  struct Result {
    /// What has arrived, still to be finished; there unless `error` is.
    std::shared_ptr<ProjectStructureReader> reader;
    /// The request failed, or was answered with a status other than 200.
    std::optional<FRXError> error;
  };
  using Completion = std::function<void(Result result)>;

  /// `completion` is called once, on a callback thread of `client`, and not inside this call. `timeout` in
  /// seconds.
  void send(HTTPClient& client, const std::string& url, double timeout,
            const ProjectStructureDocumentLimits& limits, Completion completion);
  /// The completion still comes, soon.
  void cancel() { request_.cancel(); }

 private:
  TransferRequest request_;
};

}  // namespace ferrox

#include "Classes/Copy/ProjectStructureRequest.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"

namespace ferrox {
namespace {

// The text of an error is read to its end, so that its connection can be used again.
constexpr std::size_t longestRefusedBody = std::size_t{64} << 10;

/// The answer on its way in. Touched by the transfer thread until the request is complete, and by the
/// completion's thread from then on.
class Arrival {
 public:
  Arrival(const ProjectStructureDocumentLimits& limits, ProjectStructureRequest::Completion completion)
      : reader_(std::make_shared<ProjectStructureReader>(limits)), completion_(std::move(completion)) {}

  bool begin(const HTTPClientResponse& response) {
    status_ = response.status;
    return true;
  }

  bool append(std::string_view piece) {
    if (status_ == 200) {
      broken_ = !reader_->write(piece);
    } else {
      refused_ += piece.size();
      broken_ = refused_ > longestRefusedBody;
    }
    return !broken_;
  }

  void complete(std::optional<FRXError> error) {
    ProjectStructureRequest::Result result;
    // What was broken off here ends with an error of its own, which says less.
    if (error && !broken_) {
      result.error = std::move(error);
    } else if (status_ != 200) {
      result.error = downloadError("CopyR24ProjectOperation",
                                   "http call failed with status code " + std::to_string(status_));
    } else {
      result.reader = std::move(reader_);
    }
    completion_(std::move(result));
  }

 private:
  std::shared_ptr<ProjectStructureReader> reader_;
  const ProjectStructureRequest::Completion completion_;
  int status_ = 0;
  std::size_t refused_ = 0;
  bool broken_ = false;
};

}  // namespace

void ProjectStructureRequest::send(HTTPClient& client, const std::string& url, double timeout,
                                   const ProjectStructureDocumentLimits& limits, Completion completion) {
  HTTPClientRequest request;
  request.url = url;
  request.inactivityTimeout = transferInactivityTimeout(timeout);
  const auto arrival = std::make_shared<Arrival>(limits, std::move(completion));
  HTTPClientCallbacks callbacks;
  callbacks.onResponse = [arrival](const HTTPClientResponse& response) { return arrival->begin(response); };
  callbacks.onData = [arrival](std::string_view piece) { return arrival->append(piece); };
  callbacks.onCompletion = [arrival](std::optional<FRXError> error, const HTTPClientResponse& response) {
    if (!error) arrival->begin(response);
    arrival->complete(std::move(error));
  };
  request_.send(client, std::move(request), std::move(callbacks));
}

}  // namespace ferrox

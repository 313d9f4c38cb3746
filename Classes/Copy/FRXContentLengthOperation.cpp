#include "Classes/Copy/FRXContentLengthOperation.h"

#include <charconv>
#include <limits>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "Classes/Copy/DownloadErrors.h"
#include "Platform/HTTP/Client/HTTPClient.h"

namespace ferrox {
namespace {

constexpr std::string_view className = "FRXContentLengthOperation";

// RFC 9110 section 8.6: digits and nothing else.
std::int64_t lengthOfText(std::string_view text) {
  std::int64_t length = 0;
  if (text.empty() || text.front() == '-') return 0;
  const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (end != text.data() + text.size()) return 0;
  return code == std::errc::result_out_of_range ? std::numeric_limits<std::int64_t>::max() : length;
}

}  // namespace

FRXContentLengthOperation::FRXContentLengthOperation(std::string contentURL, double timeout,
                                                     const PlatformServices& platform)
    : platform_(platform), contentURL_(std::move(contentURL)), timeout_(transferTimeout(timeout)) {}

void FRXContentLengthOperation::start() {
  if (!isStartable()) return;
  updateIsExecuting(true);
  const auto self = std::static_pointer_cast<FRXContentLengthOperation>(shared_from_this());
  getContentLength(
      contentURL_,
      [self](std::int64_t length) {
        self->contentLengthBytes_ = static_cast<std::uint64_t>(length);
        self->finish();
      },
      [self](const FRXError& error) {
        self->setError(error);
        self->finish();
      });
}

void FRXContentLengthOperation::cancel() {
  FRXConcurrentOperation::cancel();
  request_.cancel();
}

void FRXContentLengthOperation::getContentLength(const std::string& url, SuccessCallback onSuccess,
                                                 FailureCallback onFailure) {
  HTTPClientRequest request;
  request.url = url;
  request.method = "HEAD";
  request.inactivityTimeout = transferInactivityTimeout(timeout_);
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [onSuccess = std::move(onSuccess), onFailure = std::move(onFailure)](
                               const std::optional<FRXError>& error, const HTTPClientResponse& response) {
    if (error) return onFailure(*error);
    if (response.status != 200) {
      return onFailure(downloadError(
          className, "Content-Length request failed with status code " + std::to_string(response.status)));
    }
    // Names of headers know no case (RFC 9110 section 5.1).
    const std::string* const length = response.header("Content-Length");
    if (length == nullptr) {
      return onFailure(downloadError(className, "response did not contain Content-Length header"));
    }
    onSuccess(lengthOfText(*length));
  };
  callbacks.completesQuickly = startsOnCurrentThread();
  request_.send(*platform_.httpClient, std::move(request), std::move(callbacks));
}

}  // namespace ferrox

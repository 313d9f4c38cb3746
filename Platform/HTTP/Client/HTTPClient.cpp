#include "Platform/HTTP/Client/HTTPClient.h"

#include <curl/curl.h>
#include <strings.h>

#include <atomic>
#include <exception>

#include "Platform/HTTP/Client/CurlMultiLoop.h"
#include "Platform/HTTP/Client/HTTPClientTarget.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {
namespace {

// Completions may block, even on each other's requests, so there must always be one more thread; they are
// made when needed.
constexpr unsigned maxCallbackThreads = 64;

class CurlTask final : public HTTPClientTask {
 public:
  CurlTask(std::weak_ptr<CurlInbox> inbox, CurlInbox::Id id) : inbox_(std::move(inbox)), id_(id) {}

  void cancel() override { tell(CurlInbox::Message::Kind::Cancel); }
  void resume() override { tell(CurlInbox::Message::Kind::Resume); }

 private:
  void tell(CurlInbox::Message::Kind what) {
    if (const auto inbox = inbox_.lock()) inbox->post({.kind = what, .id = id_});
  }

  const std::weak_ptr<CurlInbox> inbox_;
  const CurlInbox::Id id_;
};

class CurlHTTPClient final : public HTTPClient {
 public:
  explicit CurlHTTPClient(HostNameResolver& resolver)
      : callbackQueue_(BackgroundQueue::makePool(maxCallbackThreads)), loop_(resolver, *callbackQueue_) {}

  std::shared_ptr<HTTPClientTask> send(HTTPClientRequest request, HTTPClientCallbacks callbacks) override {
    const CurlInbox::Id id = nextId_++;
    FRXError error;
    const auto target = targetOfURL(request.url, &error);
    // Made first: a quick completion may be the last thing its owner waits for, and the client may be gone
    // when a message to its thread is on its way.
    auto task = std::make_shared<CurlTask>(loop_.inbox(), id);
    if (target && isSendable(request, &error)) {
      loop_.start(id, std::make_unique<CurlTransfer>(std::move(request), *target, std::move(callbacks)));
    } else if (callbacks.onCompletion) {
      refuse(std::move(callbacks), std::move(error));
    }
    return task;
  }

 private:
  void refuse(HTTPClientCallbacks callbacks, FRXError error) {
    callbackQueue_->post([completion = std::move(callbacks.onCompletion), failure = std::move(error)] {
      try {
        completion(failure, {});
      } catch (const std::exception& exception) {
        FRX_LOG_ERROR(std::string("The completion of an HTTP request failed: ") + exception.what());
      }
    });
  }

  std::atomic<CurlInbox::Id> nextId_{1};
  std::unique_ptr<BackgroundQueue> callbackQueue_;
  CurlMultiLoop loop_;
};

}  // namespace

const std::string* HTTPClientResponse::header(std::string_view name) const {
  for (const auto& [candidate, value] : headers) {
    if (candidate.size() == name.size() && strncasecmp(candidate.data(), name.data(), name.size()) == 0) {
      return &value;
    }
  }
  return nullptr;
}

std::unique_ptr<HTTPClient> HTTPClient::make(HostNameResolver& resolver) {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  (void)initialised;
  return std::make_unique<CurlHTTPClient>(resolver);
}

}  // namespace ferrox

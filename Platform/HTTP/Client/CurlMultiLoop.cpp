#include "Platform/HTTP/Client/CurlMultiLoop.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "Platform/Log/Log.h"
#include "Platform/Net/ConnectionRace.h"
#include "Platform/Net/HostConnector.h"
#include "Platform/Net/HostNameResolver.h"

namespace ferrox {
namespace {

using Kind = CurlInbox::Message::Kind;

constexpr long keptConnections = 64;
constexpr std::chrono::milliseconds longestWait{60'000};

FRXError clientError(int code, std::string description) {
  return {HTTPClientErrorDomain, code, std::move(description)};
}

FRXError errorOfConnecting(const FRXError& cause) {
  if (cause.domain == HostNameResolverErrorDomain) {
    if (cause.code == HostNameResolverErrorTimedOut) {
      return clientError(HTTPClientErrorTimedOut, cause.localizedDescription);
    }
    return clientError(CURLE_COULDNT_RESOLVE_HOST, cause.localizedDescription);
  }
  if (cause.code == ETIMEDOUT) return clientError(HTTPClientErrorTimedOut, "The request timed out");
  return clientError(CURLE_COULDNT_CONNECT, cause.localizedDescription);
}

void complete(BackgroundQueue& queue, HTTPClientCallbacks callbacks, std::optional<FRXError> error,
              HTTPClientResponse response) {
  if (!callbacks.onCompletion) return;
  const bool isQuick = callbacks.completesQuickly;
  BackgroundQueue& where = callbacks.completionQueue != nullptr ? *callbacks.completionQueue : queue;
  // The other callbacks, and what they hold, must not outlive the completion.
  auto task = [completion = std::exchange(callbacks, {}).onCompletion, failure = std::move(error),
               answer = std::move(response)]() mutable {
    try {
      completion(std::move(failure), std::move(answer));
    } catch (const std::exception& exception) {
      FRX_LOG_ERROR(std::string("The completion of an HTTP request failed: ") + exception.what());
    } catch (...) {
      FRX_LOG_ERROR("The completion of an HTTP request failed");
    }
  };
  if (isQuick) return task();
  where.post(std::move(task));
}

}  // namespace

bool CurlInbox::post(Message message) {
  const MutexLock lock(mutex_);
  if (multi_ == nullptr) return false;
  messages_.push_back(std::move(message));
  // The transfer thread looks for its own messages before it sleeps.
  if (messages_.size() == 1 && std::this_thread::get_id() != reader_) curl_multi_wakeup(multi_);
  return true;
}

std::vector<CurlInbox::Message> CurlInbox::take() {
  const MutexLock lock(mutex_);
  reader_ = std::this_thread::get_id();
  return std::exchange(messages_, {});
}

bool CurlInbox::isEmpty() const {
  const MutexLock lock(mutex_);
  return messages_.empty();
}

void CurlInbox::close() {
  const MutexLock lock(mutex_);
  multi_ = nullptr;
}

CurlMultiLoop::CurlMultiLoop(HostNameResolver& resolver, BackgroundQueue& callbackQueue)
    : resolver_(resolver), callbackQueue_(callbackQueue), multi_(curl_multi_init()) {
  if (!multi_) throw std::bad_alloc();
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, keptConnections);
  curl_multi_setopt(multi_.get(), CURLMOPT_PIPELINING, long{CURLPIPE_NOTHING});
  inbox_ = std::make_shared<CurlInbox>(multi_.get());
  thread_ = std::thread([this] { run(); });
}

CurlMultiLoop::~CurlMultiLoop() {
  inbox_->post({.kind = Kind::Stop});
  thread_.join();
}

void CurlMultiLoop::start(Id id, std::unique_ptr<CurlTransfer> transfer) {
  // Held on to: once the message can be read, the loop may end before `post` does.
  const auto inbox = inbox_;
  inbox->post({.kind = Kind::Start, .id = id, .transfer = std::move(transfer)});
}

void CurlMultiLoop::run() {
  while (readInbox()) {
    int running = 0;
    curl_multi_perform(multi_.get(), &running);
    readResults();
    failTimedOut();
    if (!inbox_->isEmpty()) continue;
    curl_multi_poll(multi_.get(), nullptr, 0, millisecondsToWait(), nullptr);
  }
  inbox_->close();
  for (auto& message : inbox_->take()) {
    if (message.kind == Kind::Start) jobs_.emplace(message.id, Job{.transfer = std::move(message.transfer)});
  }
  finishAll();
}

bool CurlMultiLoop::readInbox() {
  for (auto& message : inbox_->take()) {
    if (message.kind == Kind::Stop) return false;
    handle(std::move(message));
  }
  return true;
}

void CurlMultiLoop::handle(CurlInbox::Message message) {
  switch (message.kind) {
    case Kind::Start: {
      const auto& job = jobs_.emplace(message.id, Job{.transfer = std::move(message.transfer)}).first->second;
      if (slots_.acquire(job.transfer->target(), message.id)) begin(message.id);
      break;
    }
    case Kind::Cancel:
      finish(message.id, clientError(HTTPClientErrorCancelled, "cancelled"));
      break;
    case Kind::Resume:
      resume(message.id);
      break;
    case Kind::Connected:
      connected(message.id, std::move(message.socket), std::move(message.error));
      break;
    case Kind::Stop:
      break;
  }
}

void CurlMultiLoop::begin(Id id) {
  Job& job = jobs_.at(id);
  job.stage = Stage::Transferring;
  if (auto error = job.transfer->prepare(sockets_)) return finish(id, std::move(error));
  attempt(id, job);
}

void CurlMultiLoop::attempt(Id id, Job& job) {
  job.stage = Stage::Transferring;
  if (const auto deadline = job.transfer->deadline()) {
    nextDeadlineCheck_ = std::min(nextDeadlineCheck_, *deadline);
  }
  idsByHandle_[job.transfer->easy()] = id;
  curl_multi_add_handle(multi_.get(), job.transfer->easy());
}

void CurlMultiLoop::connect(Id id, Job& job) {
  job.stage = Stage::Connecting;
  const auto& target = job.transfer->target();
  job.connector = HostConnector::start(
      resolver_, target.host, target.port, job.transfer->inactivityTimeout(),
      [weakInbox = std::weak_ptr(inbox_), id](FileDescriptor socket, std::optional<FRXError> error) {
        const auto inbox = weakInbox.lock();
        if (!inbox) return;
        inbox->post(
            {.kind = Kind::Connected, .id = id, .socket = std::move(socket), .error = std::move(error)});
      });
}

void CurlMultiLoop::connected(Id id, FileDescriptor socket, std::optional<FRXError> error) {
  const auto found = jobs_.find(id);
  if (found == jobs_.end()) return;
  found->second.connector.reset();
  if (error) return finish(id, errorOfConnecting(*error));
  found->second.transfer->useConnection(std::move(socket));
  attempt(id, found->second);
}

void CurlMultiLoop::resume(Id id) {
  const auto found = jobs_.find(id);
  if (found == jobs_.end()) return;
  // What the library had already read is delivered right here, and a refusal of it ends no transfer by
  // itself.
  CurlTransfer& transfer = *found->second.transfer;
  const CURLcode code = transfer.resume();
  if (code != CURLE_OK) return finish(id, transfer.errorFor(code));
  if (const auto deadline = transfer.deadline()) nextDeadlineCheck_ = std::min(nextDeadlineCheck_, *deadline);
}

void CurlMultiLoop::readResults() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg == CURLMSG_DONE) attemptDidEnd(message->easy_handle, message->data.result);
  }
}

void CurlMultiLoop::attemptDidEnd(CURL* easy, CURLcode code) {
  curl_multi_remove_handle(multi_.get(), easy);
  const auto known = idsByHandle_.extract(easy);
  if (known.empty()) return;
  const Id id = known.mapped();
  Job& job = jobs_.at(id);
  if (code != CURLE_OK && job.transfer->wantsConnection()) return connect(id, job);
  finish(id, job.transfer->errorFor(code));
}

void CurlMultiLoop::failTimedOut() {
  const auto now = std::chrono::steady_clock::now();
  if (now < nextDeadlineCheck_) return;
  nextDeadlineCheck_ = TimePoint::max();
  std::vector<Id> timedOut;
  for (const auto& [id, job] : jobs_) {
    // While connecting, the connector keeps the time.
    if (job.stage != Stage::Transferring || !job.transfer->deadline()) continue;
    if (*job.transfer->deadline() <= now) job.transfer->touchIfSocketReceived();
    if (*job.transfer->deadline() <= now) {
      timedOut.push_back(id);
    } else {
      nextDeadlineCheck_ = std::min(nextDeadlineCheck_, *job.transfer->deadline());
    }
  }
  for (const Id id : timedOut) finish(id, clientError(HTTPClientErrorTimedOut, "The request timed out"));
}

void CurlMultiLoop::finish(Id id, std::optional<FRXError> error) {
  auto node = jobs_.extract(id);
  if (node.empty()) return;
  Job& job = node.mapped();
  if (job.connector) job.connector->cancel();
  CurlTransfer& transfer = *job.transfer;
  if (idsByHandle_.erase(transfer.easy()) != 0) curl_multi_remove_handle(multi_.get(), transfer.easy());
  auto response = error ? HTTPClientResponse{} : transfer.takeResponse();
  const HTTPClientTarget target = transfer.target();
  const bool waited = job.stage == Stage::Waiting;
  auto callbacks = transfer.takeCallbacks();
  job.transfer.reset();
  complete(callbackQueue_, std::move(callbacks), std::move(error), std::move(response));
  if (waited) {
    slots_.removeWaiting(target, id);
  } else if (const auto next = slots_.release(target)) {
    begin(*next);
  }
}

void CurlMultiLoop::finishAll() {
  // Those in line go first, or each would begin as its predecessor ends.
  while (!jobs_.empty()) {
    const auto waiting = std::find_if(jobs_.begin(), jobs_.end(),
                                      [](const auto& entry) { return entry.second.stage == Stage::Waiting; });
    const Id id = waiting != jobs_.end() ? waiting->first : jobs_.begin()->first;
    finish(id, clientError(HTTPClientErrorCancelled, "cancelled"));
  }
}

int CurlMultiLoop::millisecondsToWait() const {
  if (nextDeadlineCheck_ == TimePoint::max()) return static_cast<int>(longestWait.count());
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(nextDeadlineCheck_ - std::chrono::steady_clock::now());
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds{0}, longestWait).count());
}

}  // namespace ferrox

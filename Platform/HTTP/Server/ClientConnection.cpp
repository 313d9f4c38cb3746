#include "Platform/HTTP/Server/ClientConnection.h"

#include <exception>
#include <typeinfo>
#include <utility>

#include "Platform/HTTP/Server/Answer.h"
#include "Platform/HTTP/Server/HTTPServerConnectionAccess.h"
#include "Platform/HTTP/Server/NetworkThread.h"
#include "Platform/HTTP/Server/ResponseHead.h"
#include "Platform/HTTP/Server/SocketChannel.h"
#include "Platform/HTTP/Server/UpgradeGate.h"
#include "Platform/Log/Log.h"
#include "Platform/WebSocket/WebSocketEndpoint.h"
#include "Platform/WebSocket/WebSocketHandshake.h"

namespace ferrox {

namespace {

/// Answers to pipelined requests are collected up to here, then sent.
constexpr std::size_t outputBatch = std::size_t{64} << 10;
constexpr std::chrono::seconds lingerTime{2};
constexpr std::size_t lingerBytes = std::size_t{4} << 20;

/// Runs a handler's code; what it throws is its failure, not the server's.
template <typename Call>
bool guarded(const Call& call) {
  try {
    call();
    return true;
  } catch (const std::exception& failure) {
    FRX_LOG_ERROR(std::string("A request handler failed: ") + failure.what());
  } catch (...) {
    FRX_LOG_ERROR("A request handler failed");
  }
  return false;
}

bool isDeferred(const HTTPResponse* response) {
  return response != nullptr && typeid(*response) == typeid(HTTPDeferredResponse);
}

}  // namespace

class ClientConnection::Request final : public HTTPRequest {
 public:
  Request(const RequestHead& head, const HTTPConnection& handler) : head_(head), handler_(handler) {}
  std::string_view method() const override { return head_.method; }
  std::string_view uri() const override { return head_.uri; }
  std::optional<std::string_view> header(std::string_view name) const override { return head_.field(name); }
  const std::string& body() const override { return handler_.body(); }

 private:
  const RequestHead& head_;
  const HTTPConnection& handler_;
};

ClientConnection::ClientConnection(std::shared_ptr<ServerContext> context,
                                   std::shared_ptr<NetworkThread> thread, int descriptor,
                                   std::shared_ptr<ConnectionCounts::Slot> slot)
    : context_(std::move(context)),
      thread_(std::move(thread)),
      slot_(std::move(slot)),
      channel_(std::make_unique<SocketChannel>(*thread_, descriptor, context_->counters)),
      reader_(context_->limits),
      bodySink_([this](std::string_view bytes) { handler_->processBodyData(bytes); }) {}

ClientConnection::~ClientConnection() = default;

void ClientConnection::start() {
  thread_->adopt(shared_from_this());
  enter(Phase::Fresh);
  const bool made = channel_->isOpen() && guarded([this] { handler_ = context_->makeConnection(); });
  if (!made || !handler_) return end();
  request_ = std::make_unique<Request>(reader_.head(), *handler_);
  HTTPServerConnectionAccess::setRequest(*handler_, request_.get());
  receiveMore();
}

void ClientConnection::enter(Phase phase) {
  phase_ = phase;
  touch();
}

void ClientConnection::touch() { phaseSince_ = thread_->now(); }

void ClientConnection::receiveMore() {
  if (receiving_) return;
  receiving_ = true;
  channel_->receive(reader_.freeSpace(), shared_from_this());
}

void ClientConnection::didReceive(std::size_t bytes) {
  receiving_ = false;
  if (phase_ == Phase::Ended) return;
  if (bytes == 0) return end();
  if (phase_ == Phase::Lingering) {
    lingered_ += bytes;
    return lingered_ > lingerBytes ? end() : receiveMore();
  }
  reader_.commit(bytes);
  if (phase_ == Phase::Body) {
    touch();
  } else if (phase_ != Phase::Head) {
    enter(Phase::Head);
  }
  run();
}

void ClientConnection::didBecomeWritable() {
  if (phase_ == Phase::Ended) return;
  return body_ ? runLater() : run();
}

void ClientConnection::didFail() { end(); }

void ClientConnection::abort() { end(); }

void ClientConnection::runLater() {
  thread_->takeTurn([self = std::static_pointer_cast<ClientConnection>(shared_from_this())] {
    if (self->phase_ != Phase::Ended) self->run();
  });
}

void ClientConnection::run() {
  for (;;) {
    if (!flush()) return;
    if (closeAfterwards_) return finish();
    if (phase_ == Phase::Sending) enter(Phase::Idle);
    const bool answered = readRequests();
    if (phase_ == Phase::Ended || phase_ == Phase::Preparing) return;
    if (answered || !output_.empty() || body_) continue;
    if (phase_ == Phase::Idle && reader_.isInsideRequest()) enter(Phase::Head);
    return receiveMore();
  }
}

bool ClientConnection::readRequests() {
  while (!closeAfterwards_ && !body_ && output_.size() < outputBatch) {
    RequestReader::State state = RequestReader::State::Refused;
    if (!guarded([&] { state = reader_.advance(bodySink_); })) return refuse(500), true;
    switch (state) {
      case RequestReader::State::NeedMore:
        return false;
      case RequestReader::State::Refused:
        return refuse(reader_.refusal()), true;
      case RequestReader::State::HeadComplete:
        if (!headArrived()) return true;
        break;
      case RequestReader::State::Complete:
        answer();
        if (phase_ == Phase::Preparing || phase_ == Phase::Ended) return true;
    }
  }
  return true;
}

bool ClientConnection::headArrived() {
  const RequestHead& head = reader_.head();
  HTTPServerConnectionAccess::clearBody(*handler_);
  if (head.asksForWebSocket) return upgrade(), false;
  bool supported = false;
  std::string allowed;
  const bool judged = guarded([&] {
    supported = handler_->supportsMethod(head.method, head.uri);
    if (!supported) allowed = handler_->allowedMethods(head.uri);
  });
  if (!judged) return refuse(500), false;
  if (!supported && head.hasBody) return refuse(405, {{"Allow", allowed}}), false;
  if (!supported) {
    writeRefusal(output_, 405, thread_->dateText(), head.keepAlive, head.minorVersion, {{"Allow", allowed}});
    context_->counters->answered(405);
    closeAfterwards_ = !head.keepAlive;
    reader_.next();
    enter(Phase::Idle);
    return true;
  }
  if (!head.hasBody) return true;
  if (head.expectsContinue && reader_.unread().empty()) output_.append("HTTP/1.1 100 Continue\r\n\r\n");
  enter(Phase::Body);
  return true;
}

void ClientConnection::answer() {
  const RequestHead& head = reader_.head();
  std::shared_ptr<HTTPResponse> response;
  std::shared_ptr<HTTPResponse> deferred;
  const bool made = guarded([&] {
    response = handler_->httpResponseForMethod(head.method, head.uri);
    if (!isDeferred(response.get())) return;
    deferred = std::exchange(response, nullptr);
    response = static_cast<const HTTPDeferredResponse&>(*deferred).makeAtOnce();
  });
  if (!made) return refuse(500);
  if (deferred && !response) return prepare(std::move(deferred));
  respond(std::move(response));
}

void ClientConnection::prepare(std::shared_ptr<HTTPResponse> deferred) {
  enter(Phase::Preparing);
  context_->disk.submit([self = std::static_pointer_cast<ClientConnection>(shared_from_this()),
                         deferred = std::move(deferred)] {
    std::shared_ptr<HTTPResponse> response;
    const bool made = guarded([&] { response = static_cast<const HTTPDeferredResponse&>(*deferred).make(); });
    self->thread_->post([self, made, response = std::move(response)]() mutable {
      if (self->phase_ == Phase::Ended) return;
      self->enter(Phase::Sending);
      if (made) {
        self->respond(std::move(response));
      } else {
        self->refuse(500);
      }
      self->run();
    });
  });
}

void ClientConnection::respond(std::shared_ptr<HTTPResponse> response) {
  const RequestHead& head = reader_.head();
  closeAfterwards_ = !head.keepAlive;
  WrittenAnswer answer{.status = 404};
  const bool written = guarded([&] {
    const std::size_t before = output_.size();
    try {
      if (response) {
        answer = writeAnswer(output_, head, std::move(response), head.keepAlive, thread_->dateText());
      } else {
        writeRefusal(output_, 404, thread_->dateText(), head.keepAlive, head.minorVersion);
      }
    } catch (...) {
      output_.resize(before);
      throw;
    }
  });
  if (!written) return refuse(500);
  body_ = std::move(answer.body);
  context_->counters->answered(answer.status);
  if (answer.fileBytes > 0) context_->counters->fileBytesServed.add(answer.fileBytes);
  if (body_ && body_->wantsCork(*channel_)) channel_->setCorked(true);
  reader_.next();
  if (phase_ != Phase::Sending) enter(Phase::Idle);
}

void ClientConnection::refuse(int status, const HTTPHeaders& headers) {
  writeRefusal(output_, status, thread_->dateText(), false, 1, headers);
  context_->counters->answered(status);
  closeAfterwards_ = linger_ = true;
}

void ClientConnection::upgrade() {
  const RequestHead& head = reader_.head();
  const int verdict = judgeUpgrade(head, context_->access);
  if (verdict != 101) {
    return refuse(verdict, verdict == 426
                               ? HTTPHeaders{{"Sec-WebSocket-Version", "13"}, {"Upgrade", "websocket"}}
                               : HTTPHeaders{});
  }
  std::shared_ptr<WebSocket> socket;
  std::shared_ptr<WebSocketEndpoint> endpoint;
  const bool asked = guarded([&] {
    endpoint = std::make_shared<WebSocketEndpoint>(thread_, context_->limits, *channel_, slot_);
    socket = handler_->webSocketForURI(head.uri, endpoint);
  });
  if (!asked) return refuse(500);
  if (!socket) return refuse(404);
  output_.append("HTTP/1.1 101 Switching Protocols\r\nDate: ")
      .append(thread_->dateText())
      .append("\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: ")
      .append(webSocketAcceptKey(*head.field("Sec-WebSocket-Key")))
      .append("\r\n\r\n");
  context_->counters->upgrades.add();
  phase_ = Phase::Ended;
  thread_->release(*this);
  endpoint->open(std::move(channel_), std::move(socket), std::move(output_), reader_.unread());
}

// NOLINTBEGIN(clang-analyzer-cplusplus.Move): a connection that handed its channel over has ended and does
// not come here.
bool ClientConnection::flush() {
  while (outputSent_ < output_.size() || body_) {
    if (outputSent_ < output_.size() && !sendOutput()) return false;
    if (body_ && !stepBody()) return false;
  }
  channel_->setCorked(false);
  return true;
}
// NOLINTEND(clang-analyzer-cplusplus.Move)

bool ClientConnection::sendOutput() {
  while (outputSent_ < output_.size()) {
    const ssize_t sent =
        channel_->sendNow(output_.data() + outputSent_, output_.size() - outputSent_, body_ != nullptr);
    if (sent < 0) return end(), false;
    if (sent == 0) {
      if (phase_ != Phase::Sending) enter(Phase::Sending);
      channel_->awaitWritable(shared_from_this());
      return false;
    }
    outputSent_ += static_cast<std::size_t>(sent);
    if (phase_ == Phase::Sending) touch();
  }
  output_.clear();
  outputSent_ = 0;
  if (output_.capacity() > 4 * outputBatch) output_.shrink_to_fit();
  return true;
}

bool ClientConnection::stepBody() {
  if (phase_ != Phase::Sending) enter(Phase::Sending);
  BodyTransfer::Step step = BodyTransfer::Step::Failed;
  const std::uint64_t before = body_->progress();
  const std::uint64_t fileBytesBefore = body_->fileProgress();
  guarded([&] { step = body_->step(*channel_, output_); });
  if (body_->progress() != before) touch();
  if (const std::uint64_t fileBytes = body_->fileProgress() - fileBytesBefore; fileBytes > 0) {
    context_->counters->fileBytesServed.add(fileBytes);
  }
  switch (step) {
    case BodyTransfer::Step::Advanced:
      // The last bytes must not wait for more to come.
      if (body_->isFinished()) body_.reset();
      if (!output_.empty() || !body_) return true;
      // Others have their turn between two windows.
      return runLater(), false;
    case BodyTransfer::Step::Blocked:
      return channel_->awaitWritable(shared_from_this()), false;
    case BodyTransfer::Step::NeedsDisk:
      return fetchFromDisk(), false;
    case BodyTransfer::Step::Failed:
      break;
  }
  return end(), false;
}

void ClientConnection::fetchFromDisk() {
  enter(Phase::Preparing);
  context_->disk.submit(
      [self = std::static_pointer_cast<ClientConnection>(shared_from_this()), job = body_->diskJob()] {
        job();
        self->thread_->post([self] {
          if (self->phase_ == Phase::Ended) return;
          self->enter(Phase::Sending);
          self->run();
        });
      });
}

void ClientConnection::finish() {
  // Closing with bytes unread resets the connection, and the reset may overtake our answer.
  if (!linger_ && reader_.unread().empty()) return end();
  channel_->shutDownSending();
  enter(Phase::Lingering);
  reader_.discardUnread();
  receiveMore();
}

void ClientConnection::sweep(Instant) {
  const HTTPServerLimits& limits = context_->limits;
  const auto expired = [this](std::chrono::milliseconds limit) {
    return thread_->hasExpired(phaseSince_, limit);
  };
  switch (phase_) {
    case Phase::Fresh:
      if (expired(limits.headerDeadline)) end();
      return;
    case Phase::Idle:
      if (expired(limits.idleTimeout)) end();
      return;
    case Phase::Head:
      if (!expired(limits.headerDeadline)) return;
      refuse(408);
      return run();
    case Phase::Body:
    case Phase::Sending:
      if (expired(limits.bodyTimeout)) end();
      return;
    case Phase::Lingering:
      if (expired(lingerTime)) end();
      return;
    case Phase::Preparing:
    case Phase::Ended:
      return;
  }
}

void ClientConnection::end() {
  if (phase_ == Phase::Ended) return;
  phase_ = Phase::Ended;
  const auto self = shared_from_this();
  channel_->close();
  body_.reset();
  slot_.reset();
  thread_->release(*this);
}

}  // namespace ferrox

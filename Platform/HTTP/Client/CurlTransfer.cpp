#include "Platform/HTTP/Client/CurlTransfer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <system_error>
#include <utility>

#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

// Large reads halve the time of a bulk transfer, but every request would pay for the memory.
constexpr std::uint64_t smallestBufferSize = 16 << 10;
constexpr std::uint64_t streamingBufferSize = 512 << 10;

/// One buffer takes a short answer whole.
long bufferSizeFor(const HTTPClientRequest& request) {
  constexpr std::uint64_t roomForHeaders = 1 << 10;
  if (!request.likelyBodySize || *request.likelyBodySize >= streamingBufferSize) {
    return static_cast<long>(streamingBufferSize);
  }
  return static_cast<long>(std::max(smallestBufferSize, *request.likelyBodySize + roomForHeaders));
}

// Every connection is made by us, so the library must never look a name up or choose an address: it is sent
// to this one, which the socket callbacks then ignore. Connections are still kept apart by host and port.
constexpr const char* connectToNowhere = "::127.0.0.1:";

FRXError clientError(int code, std::string description) {
  return {HTTPClientErrorDomain, code, std::move(description)};
}

std::string_view trimmedHeaderText(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// No exception may pass through the library's C code. Nothing when there was one.
template <typename Callback>
std::optional<bool> answerOf(const Callback& callback) {
  try {
    return callback();
  } catch (const std::exception& exception) {
    FRX_LOG_ERROR(std::string("A callback of an HTTP request failed: ") + exception.what());
  } catch (...) {
    FRX_LOG_ERROR("A callback of an HTTP request failed");
  }
  return std::nullopt;
}

}  // namespace

CurlTransfer::CurlTransfer(HTTPClientRequest request, HTTPClientTarget target, HTTPClientCallbacks callbacks)
    : request_(std::move(request)), target_(std::move(target)), callbacks_(std::move(callbacks)) {}

CurlTransfer::~CurlTransfer() = default;

std::optional<FRXError> CurlTransfer::prepare(OpenSockets& sockets) {
  sockets_ = &sockets;
  easy_.reset(curl_easy_init());
  connectTo_.reset(curl_slist_append(nullptr, connectToNowhere));
  if (!easy_ || !connectTo_ || !setHeaders()) return clientError(CURLE_OUT_OF_MEMORY, "Out of memory");
  setConnectionOptions();
  setRequestOptions();
  touch();
  return std::nullopt;
}

void CurlTransfer::setConnectionOptions() {
  CURL* const easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http");
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // The empty text also keeps proxies of the environment away.
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo_.get());
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlTransfer::openSocket);
  curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, this);
  curl_easy_setopt(easy, CURLOPT_SOCKOPTFUNCTION, &CurlTransfer::socketWasOpened);
  curl_easy_setopt(easy, CURLOPT_SOCKOPTDATA, this);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlTransfer::closeSocket);
  curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, sockets_);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorText_.data());
}

void CurlTransfer::setRequestOptions() {
  CURL* const easy = easy_.get();
  curl_easy_setopt(easy, CURLOPT_URL, request_.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "ferrox/" FERROX_VERSION);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headerList_.get());
  if (request_.method == "HEAD") {
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    // No body ends by it (RFC 9112 section 6.3), so whoever asked may make of the value what they will.
    curl_easy_setopt(easy, CURLOPT_IGNORE_CONTENT_LENGTH, 1L);
  } else if (request_.method != "GET") {
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
  }
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlTransfer::headerArrived);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlTransfer::bodyArrived);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  if (callbacks_.onData) curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, bufferSizeFor(request_));
}

bool CurlTransfer::setHeaders() {
  for (const auto& [name, value] : request_.headers) {
    // The library takes "Name:" as "leave this header out" and "Name;" as "send it empty".
    const std::string line = value.empty() ? name + ";" : name + ": " + value;
    curl_slist* const longer = curl_slist_append(headerList_.get(), line.c_str());
    if (longer == nullptr) return false;
    (void)headerList_.release();
    headerList_.reset(longer);
  }
  return true;
}

void CurlTransfer::useConnection(FileDescriptor socket) {
  connection_ = std::move(socket);
  wantsConnection_ = false;
  errorText_[0] = '\0';
  curl_easy_setopt(easy_.get(), CURLOPT_FRESH_CONNECT, 1L);
  touch();
}

curl_socket_t CurlTransfer::openSocket(void* self, curlsocktype, curl_sockaddr*) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (!transfer.connection_.isOpen()) {
    transfer.wantsConnection_ = true;
    return CURL_SOCKET_BAD;
  }
  transfer.sockets_->add(transfer.connection_.get());
  return transfer.connection_.release();
}

int CurlTransfer::socketWasOpened(void*, curl_socket_t, curlsocktype) {
  return CURL_SOCKOPT_ALREADY_CONNECTED;
}

// A connection may outlive the request that it was opened for, so this must not depend on a transfer.
int CurlTransfer::closeSocket(void* sockets, curl_socket_t socket) {
  static_cast<OpenSockets*>(sockets)->close(socket);
  return 0;
}

std::optional<CurlTransfer::TimePoint> CurlTransfer::deadline() const {
  if (!request_.inactivityTimeout || heldUp_) return std::nullopt;
  return lastActivity_ + *request_.inactivityTimeout;
}

void CurlTransfer::touchIfSocketReceived() {
  const char* address = nullptr;
  long port = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_LOCAL_IP, &address);
  curl_easy_getinfo(easy_.get(), CURLINFO_LOCAL_PORT, &port);
  if (address == nullptr || port == 0) return;
  const auto socket = sockets_->find(address, static_cast<std::uint16_t>(port));
  if (!socket) return;
  tcp_info info{};
  socklen_t size = sizeof(info);
  if (::getsockopt(*socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return;
  const auto received =
      std::chrono::steady_clock::now() - std::chrono::milliseconds(info.tcpi_last_data_recv);
  if (received > lastActivity_) lastActivity_ = received;
}

CURLcode CurlTransfer::resume() {
  if (!heldUp_) return CURLE_OK;
  heldUp_ = false;
  touch();
  return curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
}

std::optional<FRXError> CurlTransfer::errorFor(CURLcode code) const {
  switch (refusal_) {
    case Refusal::Cancelled:
      return clientError(HTTPClientErrorCancelled, "cancelled");
    case Refusal::BodyTooLarge:
      return clientError(HTTPClientErrorBodyTooLarge, "The body is too large");
    case Refusal::HeaderTooLarge:
      return clientError(HTTPClientErrorHeaderTooLarge, "The headers are too large");
    case Refusal::Malformed:
      return clientError(CURLE_WEIRD_SERVER_REPLY, "The answer is malformed");
    case Refusal::None:
      break;
  }
  if (code == CURLE_OK && headersComplete_) return std::nullopt;
  // The library takes headers that the connection's end cut off for a whole answer.
  if (code == CURLE_OK) return clientError(CURLE_PARTIAL_FILE, "The answer ended within its headers");
  const std::string_view detail(errorText_.data());
  return clientError(static_cast<int>(code),
                     detail.empty() ? std::string(curl_easy_strerror(code)) : std::string(detail));
}

std::size_t CurlTransfer::headerArrived(char* data, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const bool accepted = transfer.handleHeaderLine({data, size * count});
  transfer.touch();
  return accepted ? size * count : 0;
}

std::size_t CurlTransfer::bodyArrived(char* data, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (!transfer.receiverIsReady()) {
    if (transfer.refusal_ != Refusal::None) return 0;
    // The library keeps the piece and offers it again.
    transfer.heldUp_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  const bool accepted = transfer.handleBody({data, size * count});
  transfer.touch();
  return accepted ? size * count : 0;
}

bool CurlTransfer::handleHeaderLine(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > HTTPClientMaxHeaderSize) {
    refusal_ = Refusal::HeaderTooLarge;
    return false;
  }
  // What follows the body are trailer fields (RFC 9112 section 7.1.2), which nobody here asks for.
  if (headersComplete_) return true;
  if (line.starts_with("HTTP/")) {
    response_.headers.clear();
    return true;
  }
  const std::string_view content = trimmedHeaderText(line);
  if (content.empty()) return headersAreComplete();
  if (line.front() == ' ' || line.front() == '\t') {
    // A folded line continues the value before it (RFC 9112 section 5.2).
    if (!response_.headers.empty()) response_.headers.back().second.append(" ").append(content);
    return true;
  }
  const auto colon = content.find(':');
  if (colon == std::string_view::npos) return true;
  response_.headers.emplace_back(content.substr(0, colon), trimmedHeaderText(content.substr(colon + 1)));
  return true;
}

bool CurlTransfer::headersAreComplete() {
  long status = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status >= 100 && status < 200 && status != 101) return true;
  if (!hasUsableLength()) {
    refusal_ = Refusal::Malformed;
    return false;
  }
  headersComplete_ = true;
  response_.status = static_cast<int>(status);
  if (!callbacks_.onResponse) return true;
  return allows([this] { return callbacks_.onResponse(response_); });
}

// A length that is no number, or two that differ, leave open where the answer ends (RFC 9112 section 6.3);
// the library would read on until the connection does.
bool CurlTransfer::hasUsableLength() const {
  if (request_.method == "HEAD") return true;
  const std::string* const length = response_.header("Content-Length");
  if (length == nullptr) return true;
  std::uint64_t number = 0;
  const auto [end, code] = std::from_chars(length->data(), length->data() + length->size(), number);
  if (code != std::errc{} || end != length->data() + length->size()) return false;
  return std::none_of(response_.headers.begin(), response_.headers.end(), [length](const auto& header) {
    return strcasecmp(header.first.c_str(), "Content-Length") == 0 && header.second != *length;
  });
}

bool CurlTransfer::receiverIsReady() {
  if (!callbacks_.onData || !callbacks_.wantsData) return true;
  const std::optional<bool> ready = answerOf(callbacks_.wantsData);
  if (!ready) refusal_ = Refusal::Cancelled;
  return ready.value_or(false);
}

bool CurlTransfer::handleBody(std::string_view data) {
  if (callbacks_.onData) return allows([this, data] { return callbacks_.onData(data); });
  if (data.size() > request_.maxBodySize - response_.body.size()) {
    refusal_ = Refusal::BodyTooLarge;
    return false;
  }
  response_.body.append(data);
  return true;
}

template <typename Callback>
bool CurlTransfer::allows(const Callback& callback) {
  const bool allowed = answerOf(callback).value_or(false);
  if (!allowed) refusal_ = Refusal::Cancelled;
  return allowed;
}

}  // namespace ferrox

#include "Platform/HTTP/Server/RequestReader.h"

#include <algorithm>
#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>
#include <cstring>
#include <optional>

#include "Platform/HTTP/Server/RequestRules.h"

namespace ferrox {

namespace http = boost::beast::http;
using boost::beast::error_code;
using BeastView = boost::beast::string_view;

namespace {

constexpr std::size_t initialBuffer = 4096;

std::string_view view(BeastView text) { return {text.data(), text.size()}; }

/// Notes what the parser finds, without copying it.
class Events final : public http::basic_parser<true> {
 public:
  explicit Events(RequestHead& head) : head_(head) { eager(true); }

  const RequestReader::BodySink* sink = nullptr;
  std::size_t bodyBytes = 0;
  std::uint64_t chunkLeft = 0;

 private:
  void on_request_impl(http::verb, BeastView method, BeastView target, int version, error_code&) override {
    head_.method = view(method);
    head_.target = view(target);
    head_.minorVersion = version % 10;
  }
  void on_response_impl(int, BeastView, int, error_code&) override {}
  void on_field_impl(http::field, BeastView name, BeastView value, error_code&) override {
    // Fields after a chunked body are read and forgotten.
    if (!is_header_done()) head_.fields.push_back({view(name), view(value)});
  }
  void on_header_impl(error_code&) override {}
  void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
  std::size_t on_body_impl(BeastView body, error_code&) override { return take(body); }
  void on_chunk_header_impl(std::uint64_t size, BeastView, error_code&) override { chunkLeft = size; }
  std::size_t on_chunk_body_impl(std::uint64_t, BeastView body, error_code&) override {
    chunkLeft -= body.size();
    return take(body);
  }
  void on_finish_impl(error_code&) override {}
  std::size_t take(BeastView body) {
    bodyBytes += body.size();
    if (sink != nullptr && *sink) (*sink)(view(body));
    return body.size();
  }

  RequestHead& head_;
};

/// "HTTP/" and two digits that are not a version we speak.
bool namesOtherVersion(std::string_view head) {
  const std::string_view line = head.substr(0, head.find('\r'));
  if (line.size() < 9) return false;
  const std::string_view version = line.substr(line.size() - 8);
  const auto digit = [](char c) { return c >= '0' && c <= '9'; };
  return line[line.size() - 9] == ' ' && version.starts_with("HTTP/") && digit(version[5]) &&
         version[6] == '.' && digit(version[7]) && version[5] != '1';
}

}  // namespace

class RequestReader::Parser {
 public:
  std::optional<Events> events;
};

RequestReader::RequestReader(const HTTPServerLimits& limits)
    : limits_(limits), scanner_(limits_), parser_(std::make_unique<Parser>()), buffer_(initialBuffer) {
  head_.fields.reserve(16);
}

RequestReader::~RequestReader() = default;

std::span<char> RequestReader::freeSpace() {
  if (begin_ == end_) begin_ = end_ = 0;
  if (end_ == buffer_.size() && begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  // Cannot grow without end: the scanner refuses a head that exceeds its limits.
  if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);
  return {buffer_.data() + end_, buffer_.size() - end_};
}

RequestReader::State RequestReader::refuse(int status) {
  refusal_ = status;
  return State::Refused;
}

RequestReader::State RequestReader::advance(const BodySink& sink) {
  if (requestDone_) return State::Complete;
  return headDone_ ? readBody(sink) : readHead();
}

RequestReader::State RequestReader::readHead() {
  const std::string_view bytes = unread();
  switch (scanner_.scan(bytes)) {
    case HeadScanner::Outcome::NeedMore:
      return State::NeedMore;
    case HeadScanner::Outcome::Refused:
      return refuse(scanner_.refusal());
    case HeadScanner::Outcome::Complete:
      break;
  }
  const std::size_t size = scanner_.headSize();
  const std::string_view text = bytes.substr(scanner_.leadingBytes(), size - scanner_.leadingBytes());
  begin_ += size;
  scanner_.reset();
  headDone_ = true;
  if (!parseHead(text)) return State::Refused;
  requestDone_ = parser_->events->is_done();
  head_.hasBody = !requestDone_;
  if (head_.hasBody) keepHead(text);
  return State::HeadComplete;
}

bool RequestReader::parseHead(std::string_view text) {
  head_.clear();
  Events& events = parser_->events.emplace(head_);
  events.header_limit(static_cast<std::uint32_t>(text.size() + 1));
  events.body_limit(limits_.body);
  error_code failure;
  events.put({text.data(), text.size()}, failure);
  if (failure == http::error::need_more && events.is_header_done()) failure = {};
  if (failure) {
    refusal_ = failure == http::error::body_limit ? 413 : namesOtherVersion(text) ? 505 : 400;
    // A length beyond the limit is only believed once the rest of the head is.
    if (refusal_ == 413 && applyRequestRules(head_) != 0) refusal_ = 400;
    return false;
  }
  refusal_ = applyRequestRules(head_);
  if (refusal_ != 0) return false;
  head_.keepAlive = events.keep_alive();
  const auto upgrade = head_.field("Upgrade");
  head_.asksForWebSocket =
      head_.minorVersion > 0 && events.upgrade() && upgrade && listHolds(*upgrade, "websocket");
  return true;
}

void RequestReader::keepHead(std::string_view bytes) {
  keptHead_.assign(bytes);
  const auto rebase = [&](std::string_view& text) {
    const bool inside = text.data() >= bytes.data() && text.data() < bytes.data() + bytes.size();
    if (inside)
      text = std::string_view(keptHead_).substr(static_cast<std::size_t>(text.data() - bytes.data()),
                                                text.size());
  };
  for (std::string_view* text : {&head_.method, &head_.target, &head_.uri, &head_.authority}) rebase(*text);
  for (HeaderField& field : head_.fields) {
    rebase(field.name);
    rebase(field.value);
  }
}

RequestReader::State RequestReader::readBody(const BodySink& sink) {
  Events& events = *parser_->events;
  events.sink = &sink;
  // One element at a time: a chunk's line, a piece of body, the trailers.
  events.eager(false);
  // The parser asserts that a last chunk of which it has seen the line is at least "0 CRLF CRLF" long. No
  // chunked body ends in less than that, so waiting for it costs nothing.
  const auto least = [&] {
    return events.chunked() && events.chunkLeft == 0 ? std::size_t{5} : std::size_t{1};
  };
  while (end_ - begin_ >= least() && !events.is_done()) {
    error_code failure;
    events.bodyBytes = 0;
    const std::size_t used = events.put({buffer_.data() + begin_, end_ - begin_}, failure);
    begin_ += used;
    if (failure == http::error::need_more) break;
    if (failure) return refuse(failure == http::error::body_limit ? 413 : 400);
    // Lines and trailers are held to the same size whether they come in one piece or in many.
    if (used - events.bodyBytes > limits_.headerBlock) return refuse(400);
  }
  events.sink = nullptr;
  requestDone_ = events.is_done();
  if (requestDone_) return State::Complete;
  return end_ - begin_ > limits_.headerBlock ? refuse(400) : State::NeedMore;
}

void RequestReader::next() {
  headDone_ = requestDone_ = false;
  refusal_ = 0;
}

}  // namespace ferrox

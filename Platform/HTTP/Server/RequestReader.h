// Reads requests from a connection's bytes: limits and strictness first, then the parser.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "Platform/HTTP/Server/HTTPServerLimits.h"
#include "Platform/HTTP/Server/HeadScanner.h"
#include "Platform/HTTP/Server/RequestHead.h"

namespace ferrox {

/// Owns the input buffer of one connection, used for one request after another.
/// Thread: network
class RequestReader {
 public:
  enum class State {
    NeedMore,      ///< bytes must be received
    HeadComplete,  ///< reported once; the body, where there is one, is still to come
    Complete,      ///< the whole request is there
    Refused,       ///< answer `refusal()` and close: nothing after it can be trusted
  };
  using BodySink = std::function<void(std::string_view)>;

  explicit RequestReader(const HTTPServerLimits& limits);
  ~RequestReader();
  RequestReader(const RequestReader&) = delete;
  RequestReader& operator=(const RequestReader&) = delete;

  /// Where received bytes go; never empty.
  std::span<char> freeSpace();
  void commit(std::size_t bytes) { end_ += bytes; }

  /// Goes as far as the bytes reach. `sink` is given the body's pieces.
  State advance(const BodySink& sink);
  const RequestHead& head() const { return head_; }
  int refusal() const { return refusal_; }
  /// Discards the request that was answered.
  void next();

  void discardUnread() { begin_ = end_; }

  /// Received and not yet part of any request.
  std::string_view unread() const { return {buffer_.data() + begin_, end_ - begin_}; }
  /// True between the first byte of a request and its end.
  bool isInsideRequest() const { return headDone_ || begin_ != end_; }

 private:
  class Parser;
  State refuse(int status);
  State readHead();
  State readBody(const BodySink& sink);
  bool parseHead(std::string_view bytes);
  void keepHead(std::string_view bytes);

  const HTTPServerLimits limits_;
  HeadScanner scanner_;
  std::unique_ptr<Parser> parser_;
  RequestHead head_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  /// The head of a request with a body, moved out of the way of the body's bytes.
  std::string keptHead_;
  bool headDone_ = false;
  bool requestDone_ = false;
  int refusal_ = 0;
};

}  // namespace ferrox

#include "Platform/WebSocket/WebSocketOpening.h"

#include <openssl/evp.h>

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <utility>

#include "Platform/WebSocket/MaskingKeys.h"
#include "Platform/WebSocket/WebSocketHandshake.h"

namespace ferrox {
namespace {

namespace http = boost::beast::http;

constexpr std::uint32_t maxHeader = 16 * 1024;

std::string freshKey() {
  std::array<unsigned char, 16> bytes{};
  fillWithRandomBytes(bytes.data(), bytes.size());
  std::array<unsigned char, 25> text{};
  const int length = EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size()));
  return {reinterpret_cast<const char*>(text.data()), static_cast<std::size_t>(length)};
}

}  // namespace

struct WebSocketOpening::Parser : http::response_parser<http::empty_body> {
  Parser() {
    header_limit(maxHeader);
    eager(false);
  }
  std::size_t count(http::field name) const { return get().count(name); }
  std::string_view field(http::field name) const {
    const auto value = get()[name];
    return {value.data(), value.size()};
  }
};

WebSocketOpening::WebSocketOpening(const WebSocketURL& url) : WebSocketOpening(url, freshKey()) {}

WebSocketOpening::WebSocketOpening(const WebSocketURL& url, std::string key)
    : key_(std::move(key)), parser_(std::make_unique<Parser>()) {
  request_.append("GET ").append(url.target).append(" HTTP/1.1\r\nHost: ").append(url.authority);
  request_.append("\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: ").append(key_);
  request_.append("\r\nSec-WebSocket-Version: 13\r\n\r\n");
}

WebSocketOpening::~WebSocketOpening() = default;

WebSocketOpening::State WebSocketOpening::read(std::string_view bytes) {
  unread_.append(bytes);
  boost::system::error_code error;
  const std::size_t used = parser_->put(boost::asio::buffer(unread_), error);
  unread_.erase(0, used);
  if (error == http::error::need_more) return State::NeedMore;
  if (error == http::error::header_limit) return refuse("The answer to the handshake has too long a header");
  if (error) return refuse("The answer to the handshake is not HTTP");
  return parser_->is_header_done() ? judge() : State::NeedMore;
}

WebSocketOpening::State WebSocketOpening::judge() {
  const auto& answer = parser_->get();
  if (answer.result_int() != 101) {
    return refuse("The handshake was answered with status " + std::to_string(answer.result_int()));
  }
  if (answer.version() != 11) return refuse("The handshake was not answered in HTTP/1.1");
  if (!boost::beast::iequals(answer[http::field::upgrade], "websocket")) {
    return refuse("The answer upgrades to another protocol");
  }
  if (!http::token_list(answer[http::field::connection]).exists("upgrade")) {
    return refuse("The answer does not upgrade the connection");
  }
  if (parser_->count(http::field::sec_websocket_accept) != 1 ||
      parser_->field(http::field::sec_websocket_accept) != webSocketAcceptKey(key_)) {
    return refuse("The answer does not belong to this handshake");
  }
  // Nothing of the kind was asked for, so the server must not choose it (RFC 6455 section 4.1).
  if (parser_->count(http::field::sec_websocket_extensions) != 0 ||
      parser_->count(http::field::sec_websocket_protocol) != 0) {
    return refuse("The answer chooses an extension or a subprotocol that was not offered");
  }
  return State::Accepted;
}

WebSocketOpening::State WebSocketOpening::refuse(std::string why) {
  refusal_ = std::move(why);
  return State::Refused;
}

}  // namespace ferrox

// URLs made of what a peer says about itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// A peer's port as its URLs hold it: a whole number of 0 to 65535, or the digits of one as a text; "(null)"
/// when it is missing. Nothing for any other value. Thread: any
std::optional<std::string> portOfPeer(const FRXValue* port);

/// Makes URLs that lead to one peer.
/// Thread: any
class PeerURLs {
 public:
  /// An IPv6 address gets its brackets, and its zone the form of RFC 6874; characters of a host name beyond
  /// ASCII are escaped.
  explicit PeerURLs(std::string_view hostName);

  /// "http://HOST:PORT" and the path, which is empty or begins with a slash; a "?" may begin a query (RFC
  /// 3986 section 3). Both stand as they are given. Nothing when that makes no URL or one that would lead
  /// elsewhere, and when the peer's name is none.
  std::optional<std::string> url(std::string_view port, std::string_view path) const;

 private:
  /// "http://HOST:", or nothing.
  std::string beginning_;
};

}  // namespace ferrox

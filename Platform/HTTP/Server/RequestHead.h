// Request line and header fields as they were read, and what they say about the message.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/HTTP/Server/HTTPRequest.h"

namespace ferrox {

struct HeaderField {
  std::string_view name;
  std::string_view value;
};

/// Views point into the reader's buffer and hold until the request is discarded.
struct RequestHead {
  std::string_view method;
  std::string_view target;     ///< as sent
  std::string_view uri;        ///< origin form; "*" or an authority for the methods that use those
  std::string_view authority;  ///< from an absolute-form target, else from Host
  std::vector<HeaderField> fields;
  int minorVersion = 1;
  bool keepAlive = true;
  bool asksForWebSocket = false;
  bool expectsContinue = false;
  bool hasBody = false;

  /// First field of that name, whatever its case.
  std::optional<std::string_view> field(std::string_view name) const;
  std::size_t count(std::string_view name) const;
  void clear();
};

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b);
/// Whether a comma-separated list holds `token`, whatever its case.
bool listHolds(std::string_view list, std::string_view token);

}  // namespace ferrox

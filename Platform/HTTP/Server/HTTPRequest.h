// A request as a connection handler sees it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox {

/// Views are valid while the request is being answered. Thread: network
class FRX_EXPORT HTTPRequest {
 public:
  virtual ~HTTPRequest() = default;
  virtual std::string_view method() const = 0;
  /// The request target as sent, query included, in origin form.
  virtual std::string_view uri() const = 0;
  /// First field of that name (compared without regard to ASCII case), or nothing.
  virtual std::optional<std::string_view> header(std::string_view name) const = 0;
  virtual const std::string& body() const = 0;
};

/// Query parameters of a request target, split at "&" and "=" but not decoded; of a repeated name the first
/// counts. Thread: any
FRX_EXPORT std::map<std::string, std::string> parseGetParams(std::string_view uri);

}  // namespace ferrox

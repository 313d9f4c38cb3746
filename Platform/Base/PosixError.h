// Errors of the system's own calls.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "Platform/Base/FRXError.h"

namespace ferrox {

/// Its codes are those of errno.
inline constexpr const char* PosixErrorDomain = "com.ferrox.posix.ErrorDomain";

/// `subject`, for example a path, stands in front of what the system says about `code`.
inline FRXError posixError(int code, std::string_view subject) {
  return {PosixErrorDomain, code, std::string(subject) + ": " + std::generic_category().message(code)};
}

}  // namespace ferrox

// Where on this disk a file URL points.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

/// The absolute path of a file URL (RFC 8089), percent-decoded, without a "/" at its end: "file:///a%20b/"
/// gives "/a b". An absolute path is taken as it stands. Nothing for other schemes, for relative paths and
/// for what holds a malformed escape or a NUL. Thread: any
std::optional<std::string> pathFromFileURL(std::string_view url);

}  // namespace ferrox

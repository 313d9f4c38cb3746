// Which relative paths from outside may be made into files and folders here.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

/// The longest name of a file or folder (NAME_MAX) and the longest path that programs can open (PATH_MAX
/// without its final NUL), in bytes.
inline constexpr std::size_t longestFileName = 255;
inline constexpr std::size_t longestPath = 4095;

/// Why a path cannot be used; worded to follow the path: "is empty", "is absolute", ...
/// Usable is what stays beneath any folder and has one spelling only: components of 1 to 255 bytes between
/// single "/", none of them "." or "..", all UTF-8, without NUL and other control characters (U+0000 to
/// U+001F, U+007F to U+009F), and at most `maxBytes` long in all. A backslash, a colon and a percent sign are
/// ordinary characters: on this system they separate and escape nothing.
/// Nothing when the path may be used. Thread: any
[[nodiscard]] std::optional<std::string> whyUnusable(std::string_view relativePath,
                                                     std::size_t maxBytes = longestPath);

/// A path as it can be shown to people and written to a log: in quotes, cut after 100 characters, with
/// control characters and bytes that are no UTF-8 escaped. Thread: any
[[nodiscard]] std::string shownPath(std::string_view path);

}  // namespace ferrox

// The members of the project structure document, for those who write it and those who read it.
#pragma once

#include <string_view>

namespace ferrox {

/// The relative paths of everything that is no directory.
inline constexpr std::string_view FRX_FILES_JSON_KEY = "files";
/// The relative paths of all directories.
inline constexpr std::string_view FRX_DIRECTORIES_JSON_KEY = "directories";

}  // namespace ferrox

// Small questions about text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ferrox {

/// True for an absent and for an empty text; blanks count as content. Thread: any
bool isNilOrEmpty(const std::optional<std::string>& text);
/// Without white space and line breaks (Unicode) at both ends. Thread: any
std::string trim(std::string_view text);

}  // namespace ferrox

// Which notifications a node listens to, as given on the command line or in a command.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox::command {

/// A name, and a filter if only notifications with that filter are wanted.
struct Observation {
  std::string name;
  std::optional<std::string> filter;

  /// Reads NAME or NAME=FILTER, cut at the first "=". Nothing, with `problem` saying why, when a part is
  /// blank.
  static std::optional<Observation> fromText(std::string_view text, std::string& problem);

  auto operator<=>(const Observation&) const = default;
};

/// A filter of blanks alone counts as none on its way, so nobody could ever be reached by it.
bool isBlank(std::string_view text);

}  // namespace ferrox::command

// The host application's table of translated texts.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace ferrox {

/// Passes texts for people through the host's table.
/// Thread: any
class Localization {
 public:
  using Table = std::function<std::string(std::string_view text)>;

  /// Sets the table; an empty one brings back the default, which returns every text unchanged.
  static void setTable(Table table);
  static std::string localized(std::string_view text);
};

}  // namespace ferrox

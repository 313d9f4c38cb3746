#include "Platform/Net/HostName.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>

namespace ferrox {
namespace {

constexpr std::size_t maxNameSize = 253;
constexpr std::size_t maxLabelSize = 63;
constexpr std::string_view multicastSuffix = ".local";

bool isBlankOrControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= 0x20 || byte == 0x7F;
}

}  // namespace

std::string withAnnouncedForm(std::string name) {
  if (isMulticastHostName(name) && !name.ends_with('.')) name += '.';
  return name;
}

std::string_view withoutTrailingDot(std::string_view name) {
  if (name.ends_with('.')) name.remove_suffix(1);
  return name;
}

bool isUsableHostName(std::string_view name) {
  name = withoutTrailingDot(name);
  if (name.empty() || name.size() > maxNameSize) return false;
  if (std::any_of(name.begin(), name.end(), isBlankOrControl)) return false;
  while (true) {
    const auto dot = name.find('.');
    const auto label = name.substr(0, dot);
    if (label.empty() || label.size() > maxLabelSize) return false;
    if (dot == std::string_view::npos) return true;
    name.remove_prefix(dot + 1);
  }
}

bool isMulticastHostName(std::string_view name) {
  name = withoutTrailingDot(name);
  if (name.size() <= multicastSuffix.size()) return false;
  const auto end = name.substr(name.size() - multicastSuffix.size());
  return strncasecmp(end.data(), multicastSuffix.data(), multicastSuffix.size()) == 0;
}

}  // namespace ferrox

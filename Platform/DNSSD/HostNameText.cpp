#include "Platform/DNSSD/HostNameText.h"

#include <algorithm>

#include "Platform/Host/Text.h"

namespace ferrox::dnssd {
namespace {

bool isHostCharacter(char c) {
  const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  const bool digit = c >= '0' && c <= '9';
  return letter || digit || c == '-' || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool isHostLabel(const std::string& label) {
  return std::all_of(label.begin(), label.end(), isHostCharacter) && text::isValidUtf8(label);
}

}  // namespace

std::optional<std::string> hostNameText(const DNSName& name) {
  if (name.empty() || !std::all_of(name.begin(), name.end(), isHostLabel)) return std::nullopt;
  std::string result;
  for (const std::string& label : name) result.append(label).append(1, '.');
  return result;
}

std::optional<std::string> normalizedHostName(std::string_view text) {
  const auto name = dnsNameFromText(text);
  if (!name || !hostNameText(*name)) return std::nullopt;
  return lowerCaseHostName(text);
}

std::string lowerCaseHostName(std::string_view text) {
  if (text.ends_with('.')) text.remove_suffix(1);
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

}  // namespace ferrox::dnssd

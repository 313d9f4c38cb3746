#include "Classes/Utilities/PercentCoding.h"

#include "Platform/Host/Text.h"

namespace ferrox {
namespace {

bool isAlphanumericAscii(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isKept(char c, PercentSet set) {
  constexpr std::string_view unreservedAndSubDelimiters = "-._~!$&'()*+,;=:";
  constexpr std::string_view onlyInHost = "[]";
  constexpr std::string_view onlyInPath = "@/";
  if (isAlphanumericAscii(c) || unreservedAndSubDelimiters.find(c) != std::string_view::npos) return true;
  return (set == PercentSet::Host ? onlyInHost : onlyInPath).find(c) != std::string_view::npos;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string percentEncoded(std::string_view text, PercentSet keep) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (const char c : text) {
    if (isKept(c, keep)) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += '%';
    encoded += digits[byte >> 4U];
    encoded += digits[byte & 0xFU];
  }
  return encoded;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    if (text.size() - i < 3) return std::nullopt;
    const int high = hexValue(text[i + 1]);
    const int low = hexValue(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  if (!text::isValidUtf8(decoded)) return std::nullopt;
  return decoded;
}

}  // namespace ferrox

#include "Platform/DNSSD/TXTRecord.h"

#include <algorithm>

namespace ferrox {
namespace {

char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return asciiLower(x) == asciiLower(y); });
}

// RFC 6763 section 6.4: printable US-ASCII without "=".
bool isValidKey(std::string_view key) {
  return !key.empty() &&
         std::all_of(key.begin(), key.end(), [](char c) { return c >= 0x20 && c <= 0x7E && c != '='; });
}

bool containsKey(const std::map<std::string, std::string>& entries, std::string_view key) {
  return std::any_of(entries.begin(), entries.end(),
                     [&](const auto& entry) { return equalsIgnoringAsciiCase(entry.first, key); });
}

}  // namespace

std::map<std::string, std::string> decodeTXTRecord(std::string_view rdata) {
  std::map<std::string, std::string> entries;
  while (!rdata.empty()) {
    const std::size_t length = static_cast<unsigned char>(rdata.front());
    rdata.remove_prefix(1);
    if (length > rdata.size()) break;
    const std::string_view text = rdata.substr(0, length);
    rdata.remove_prefix(length);
    const std::size_t separator = text.find('=');
    const std::string_view key = text.substr(0, separator);
    if (!isValidKey(key) || containsKey(entries, key)) continue;
    const bool hasValue = separator != std::string_view::npos;
    entries.emplace(key, hasValue ? text.substr(separator + 1) : std::string_view{});
  }
  return entries;
}

std::optional<std::string> encodeTXTRecord(const std::map<std::string, std::string>& entries) {
  std::string rdata;
  for (const auto& [key, value] : entries) {
    if (!isValidKey(key)) return std::nullopt;
    const std::size_t length = key.size() + 1 + value.size();
    if (length > 255) return std::nullopt;
    rdata.push_back(static_cast<char>(length));
    rdata.append(key).append(1, '=').append(value);
    if (rdata.size() > maxTXTRecordSize) return std::nullopt;
  }
  // A TXT record holds at least one string (RFC 6763 section 6.1).
  if (rdata.empty()) rdata.push_back('\0');
  return rdata;
}

}  // namespace ferrox

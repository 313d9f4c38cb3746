#include "Platform/HTTP/Server/RequestHead.h"

#include <algorithm>

namespace ferrox {

namespace {

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view withoutBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

}  // namespace

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lowered(x) == lowered(y); });
}

bool listHolds(std::string_view list, std::string_view token) {
  while (!list.empty()) {
    const std::size_t comma = std::min(list.find(','), list.size());
    if (equalsIgnoringAsciiCase(withoutBlanks(list.substr(0, comma)), token)) return true;
    list.remove_prefix(std::min(comma + 1, list.size()));
  }
  return false;
}

std::optional<std::string_view> RequestHead::field(std::string_view name) const {
  for (const HeaderField& field : fields) {
    if (equalsIgnoringAsciiCase(field.name, name)) return field.value;
  }
  return std::nullopt;
}

std::size_t RequestHead::count(std::string_view name) const {
  return static_cast<std::size_t>(std::count_if(fields.begin(), fields.end(), [&](const HeaderField& field) {
    return equalsIgnoringAsciiCase(field.name, name);
  }));
}

void RequestHead::clear() {
  method = target = uri = authority = {};
  fields.clear();
  minorVersion = 1;
  keepAlive = true;
  asksForWebSocket = expectsContinue = hasBody = false;
}

}  // namespace ferrox

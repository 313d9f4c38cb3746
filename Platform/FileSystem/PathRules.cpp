#include "Platform/FileSystem/PathRules.h"

#include <cstdio>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

constexpr std::size_t longestShown = 100;

bool isControl(char32_t character) { return character < 0x20 || (character >= 0x7F && character <= 0x9F); }

const char* faultOfCharacters(std::string_view path) {
  std::size_t position = 0;
  while (position < path.size()) {
    const auto character = nextCharacter(path, position);
    if (!character) return "is no UTF-8";
    if (*character == 0) return "holds a NUL";
    if (isControl(*character)) return "holds a control character";
  }
  return nullptr;
}

const char* faultOfComponent(std::string_view component) {
  if (component.empty()) return "has an empty component";
  if (component == "..") return "leads out of its folder (\"..\")";
  if (component == ".") return "has a \".\" component";
  if (component.size() > longestFileName) return "has a component of more than 255 bytes";
  return nullptr;
}

const char* faultOf(std::string_view path) {
  if (path.empty()) return "is empty";
  if (path.front() == '/') return "is absolute";
  if (const char* fault = faultOfCharacters(path)) return fault;
  while (true) {
    const std::size_t slash = path.find('/');
    if (const char* fault = faultOfComponent(path.substr(0, slash))) return fault;
    if (slash == std::string_view::npos) return nullptr;
    path.remove_prefix(slash + 1);
  }
}

void appendEscaped(std::string& out, unsigned number) {
  char text[16];
  std::snprintf(text, sizeof text, "\\x%02x", number);
  out += text;
}

}  // namespace

std::optional<std::string> whyUnusable(std::string_view relativePath, std::size_t maxBytes) {
  if (relativePath.size() > maxBytes) {
    return "is longer than the " + std::to_string(maxBytes) + " bytes there is room for";
  }
  const char* const fault = faultOf(relativePath);
  return fault == nullptr ? std::nullopt : std::optional<std::string>(fault);
}

std::string shownPath(std::string_view path) {
  std::string shown = "\"";
  std::size_t position = 0;
  for (std::size_t count = 0; position < path.size() && count < longestShown; ++count) {
    const std::size_t first = position;
    const auto character = nextCharacter(path, position);
    if (!character) {
      appendEscaped(shown, static_cast<unsigned char>(path[first]));
    } else if (isControl(*character)) {
      appendEscaped(shown, static_cast<unsigned>(*character));
    } else {
      shown += path.substr(first, position - first);
    }
  }
  shown += position < path.size() ? "...\"" : "\"";
  return shown;
}

}  // namespace ferrox

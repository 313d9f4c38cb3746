#include "Classes/Utilities/FileURL.h"

#include "Classes/Utilities/PercentCoding.h"

namespace ferrox {
namespace {

constexpr std::string_view fileScheme = "file:";

bool beginsWithFileScheme(std::string_view url) {
  if (url.size() < fileScheme.size()) return false;
  for (std::size_t i = 0; i < fileScheme.size(); ++i) {
    const char c = url[i];
    const char lower = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (lower != fileScheme[i]) return false;
  }
  return true;
}

std::optional<std::string> decodedPathOf(std::string_view url) {
  url.remove_prefix(fileScheme.size());
  if (url.starts_with("//")) {
    const std::size_t path = url.find('/', 2);
    if (path == std::string_view::npos) return std::nullopt;
    url.remove_prefix(path);
  }
  return percentDecoded(url.substr(0, url.find_first_of("?#")));
}

}  // namespace

std::optional<std::string> pathFromFileURL(std::string_view url) {
  auto path = beginsWithFileScheme(url) ? decodedPathOf(url) : std::optional<std::string>(url);
  if (!path || !path->starts_with('/') || path->find('\0') != std::string::npos) return std::nullopt;
  while (path->size() > 1 && path->ends_with('/')) path->pop_back();
  return path;
}

}  // namespace ferrox

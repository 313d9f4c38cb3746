#include "Classes/HTTPServer/RequestPath.h"

#include <cstddef>

namespace ferrox {
namespace {

constexpr auto none = std::string_view::npos;

/// Line terminators as Unicode regular expressions know them (UTS 18 section 1.6), in UTF-8.
bool holdsLineBreak(std::string_view text) {
  return text.find_first_of("\n\v\f\r") != none || text.find("\xC2\x85") != none ||
         text.find("\xE2\x80\xA8") != none || text.find("\xE2\x80\xA9") != none;
}

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

bool isProjectFilePath(std::string_view path) {
  constexpr std::string_view projects = "/projects/";
  constexpr std::string_view files = "/files/";
  if (!path.starts_with(projects) || holdsLineBreak(path)) return false;
  // The first "/files/" that leaves a character for the project decides: a later one leaves less behind it.
  const std::size_t at = path.find(files, projects.size() + 1);
  return at != none && at + files.size() < path.size();
}

std::string_view lastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  return path.size() > 1 ? path.substr(path.rfind('/') + 1) : path;
}

std::string_view deletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const std::size_t slash = path.rfind('/');
  if (slash == none) return {};
  return withoutTrailingSlashes(path.substr(0, slash == 0 ? 1 : slash));
}

}  // namespace ferrox

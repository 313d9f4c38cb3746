#include "Classes/Copy/PieceNames.h"

#include <algorithm>
#include <cstdio>
#include <functional>

#include "Platform/FileSystem/PathRules.h"

namespace ferrox {
namespace {

std::string_view leafOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool looksLikePiece(std::string_view path) {
  const std::string_view leaf = leafOf(path);
  const std::size_t dot = leaf.rfind('.');
  if (dot == std::string_view::npos || dot + 1 == leaf.size()) return false;
  return std::all_of(leaf.begin() + static_cast<std::ptrdiff_t>(dot) + 1, leaf.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

PieceNames::PieceNames(const ProjectStructureDocument& document) {
  take(document.directories);
  take(document.files);
}

void PieceNames::take(const PathList& paths) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (looksLikePiece(paths[i])) taken_.emplace(paths[i]);
  }
}

std::string PieceNames::extension(std::uint64_t offset) { return "." + std::to_string(offset); }

std::string PieceNames::nameOf(std::string_view path, std::uint64_t offset) const {
  std::string name = std::string(path) + extension(offset);
  if (leafOf(name).size() <= longestFileName && !taken_.contains(name)) return name;
  char marked[40];
  std::snprintf(marked, sizeof marked, ".ferrox-piece-%016zx", std::hash<std::string_view>{}(path));
  const std::string folder(path.substr(0, path.size() - leafOf(path).size()));
  std::string start = folder + marked;
  while (taken_.contains(start + extension(offset))) start += '_';
  return start + extension(offset);
}

}  // namespace ferrox

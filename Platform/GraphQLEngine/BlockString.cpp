#include "Platform/GraphQLEngine/BlockString.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ferrox::graphql {
namespace {

std::vector<std::string_view> linesOf(std::string_view raw) {
  std::vector<std::string_view> lines;
  for (;;) {
    const std::size_t end = raw.find_first_of("\r\n");
    lines.push_back(raw.substr(0, end));
    if (end == std::string_view::npos) return lines;
    raw.remove_prefix(end + (raw.substr(end).starts_with("\r\n") ? 2 : 1));
  }
}

std::size_t indentOf(std::string_view line) { return std::min(line.find_first_not_of(" \t"), line.size()); }

bool isBlank(std::string_view line) { return indentOf(line) == line.size(); }

}  // namespace

std::string blockStringValue(std::string_view raw) {
  std::vector<std::string_view> lines = linesOf(raw);
  std::size_t commonIndent = raw.size();
  for (std::size_t i = 1; i < lines.size(); ++i) {
    if (!isBlank(lines[i])) commonIndent = std::min(commonIndent, indentOf(lines[i]));
  }
  for (std::size_t i = 1; i < lines.size(); ++i) {
    lines[i].remove_prefix(std::min(commonIndent, lines[i].size()));
  }

  const auto first = std::find_if_not(lines.begin(), lines.end(), isBlank);
  const auto last = std::find_if_not(lines.rbegin(), std::make_reverse_iterator(first), isBlank).base();
  std::string value;
  for (auto line = first; line != last; ++line) {
    if (line != first) value += '\n';
    value += *line;
  }
  return value;
}

}  // namespace ferrox::graphql

#include "Apps/ferrox/Terminal/TextTable.h"

#include <algorithm>
#include <utility>

namespace ferrox::command {
namespace {

constexpr std::size_t gap = 2;

// Takes one column from the widest that may still give; false when none may.
bool shrinkWidest(std::vector<std::size_t>& widths, const std::vector<std::size_t>& least) {
  std::size_t widest = widths.size();
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (widths[i] > least[i] && (widest == widths.size() || widths[i] > widths[widest])) widest = i;
  }
  if (widest == widths.size()) return false;
  --widths[widest];
  return true;
}

}  // namespace

void TextTable::addRow(std::vector<TableCell> cells) {
  for (TableCell& cell : cells) cell.text = escapedForTerminal(cell.text);
  cells.resize(columns_.size());
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> TextTable::columnWidths(std::size_t width) const {
  std::vector<std::size_t> widths;
  std::vector<std::size_t> least;
  for (const TableColumn& column : columns_) {
    widths.push_back(displayWidth(column.heading));
    least.push_back(column.leastWidth);
  }
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], displayWidth(row[i].text));
  }
  const auto total = [&] {
    std::size_t sum = widths.empty() ? 0 : gap * (widths.size() - 1);
    for (const std::size_t w : widths) sum += w;
    return sum;
  };
  while (total() > width && shrinkWidest(widths, least)) {
  }
  const std::vector<std::size_t> one(widths.size(), 1);
  while (total() > width && shrinkWidest(widths, one)) {
  }
  // Even one character each may be too much; then the last columns are left out.
  while (widths.size() > 1 && total() > width) widths.pop_back();
  return widths;
}

std::string TextTable::line(const std::vector<TableCell>& cells, const std::vector<std::size_t>& widths,
                            const Style& style) const {
  std::string out;
  std::string blanks;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (i > 0) blanks.append(gap, ' ');
    const std::string text = shortenedInside(cells[i].text, widths[i]);
    const std::size_t rest = widths[i] - std::min(widths[i], displayWidth(text));
    if (columns_[i].align == Align::Right) blanks.append(rest, ' ');
    if (!text.empty()) {
      out += std::exchange(blanks, {});
      out += style(cells[i].tone, text);
    }
    if (columns_[i].align == Align::Left) blanks.append(rest, ' ');
  }
  return out;
}

std::vector<std::string> TextTable::lines(std::size_t width, const Style& style) const {
  const std::vector<std::size_t> widths = columnWidths(width);
  std::vector<TableCell> headings;
  for (const TableColumn& column : columns_) headings.push_back({column.heading, Tone::Dim});
  std::vector<std::string> out{line(headings, widths, style)};
  for (const auto& row : rows_) out.push_back(line(row, widths, style));
  return out;
}

}  // namespace ferrox::command

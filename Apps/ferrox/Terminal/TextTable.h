// Rows under aligned headings, fitted into the width there is.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Apps/ferrox/Terminal/Terminal.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {

struct TableColumn {
  std::string heading;
  Align align = Align::Left;
  /// A column never becomes narrower than this while others can still give way.
  std::size_t leastWidth = 4;
};

struct TableCell {
  /// Raw text; the table escapes it.
  std::string text;
  Tone tone = Tone::Plain;
};

/// Columns are as wide as their widest cell; where that is more than the terminal offers, the widest columns
/// are cut first. Trailing blanks are left out, so that lines wrap nowhere.
class TextTable {
 public:
  explicit TextTable(std::vector<TableColumn> columns) : columns_(std::move(columns)) {}

  void addRow(std::vector<TableCell> cells);
  /// Heading and rows, one line each, none wider than `width` columns.
  std::vector<std::string> lines(std::size_t width, const Style& style) const;

 private:
  std::vector<std::size_t> columnWidths(std::size_t width) const;
  std::string line(const std::vector<TableCell>& cells, const std::vector<std::size_t>& widths,
                   const Style& style) const;

  std::vector<TableColumn> columns_;
  std::vector<std::vector<TableCell>> rows_;
};

}  // namespace ferrox::command

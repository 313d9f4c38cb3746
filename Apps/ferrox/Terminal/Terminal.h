// What the process's own terminal is and can do, and how text on it is coloured.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ferrox::command {

struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

bool isTerminal(int descriptor);
/// A terminal on which lines can be written over: one that is not "dumb" by TERM.
bool canRedraw(int descriptor);
/// The window's size, or 80 by 24 where the descriptor is no terminal.
TerminalSize terminalSize(int descriptor);

enum class Tone { Plain, Strong, Dim, Good, Bad, Notice };

/// Colours, or leaves alone: NO_COLOR (set and not empty), a TERM of "dumb" and output that is no terminal
/// switch colours off.
class Style {
 public:
  explicit Style(bool coloured) : coloured_(coloured) {}
  static Style forDescriptor(int descriptor);

  bool isColoured() const { return coloured_; }
  std::string operator()(Tone tone, std::string_view text) const;

 private:
  bool coloured_;
};

}  // namespace ferrox::command

// Asks the person at the terminal, who may be interrupted while thinking.
#pragma once

#include <string>

#include "Platform/Net/FileDescriptor.h"

namespace ferrox::command {

/// One question with yes or no, which somebody else can withdraw.
class TerminalQuestion {
 public:
  TerminalQuestion();

  /// Writes the text on stderr and waits for a line on stdin: true for "y" or "yes". False for anything else,
  /// at the end of input, and once it is withdrawn. Blocks. Thread: any one
  bool ask(const std::string& text) const;
  /// Now and for later. Thread: any
  void withdraw() const;

 private:
  FileDescriptor withdrawn_;
};

}  // namespace ferrox::command

// The library's log on stderr, for people.
#pragma once

#include <functional>
#include <string>

#include "Platform/Log/Log.h"

namespace ferrox::command {

/// Sends entries of `level` and above to stderr, one escaped line each, coloured on a terminal.
void setLogOutput(LogLevel level);

/// While set, lines go to `taker` instead (a live table shows them itself, in its own place). An empty
/// function brings stderr back. Thread: any; `taker` is called on the thread that logs
void redirectLog(std::function<void(LogLevel, std::string)> taker);

}  // namespace ferrox::command

// How a subcommand that does one thing tells its outcome.
#pragma once

#include <string>
#include <string_view>

#include "Apps/ferrox/ExitCode.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

/// Says on stderr why the work failed, and with `json` as a last event on stdout too. ExitFailed.
int reportFailure(bool json, std::string_view reason);
/// One event on stdout. ExitDone, or ExitFailed when stdout does not take it.
int reportEvent(std::string_view event, const FRXDictionary& members);
/// Raw lines of text on stdout; the text must be escaped already. Likewise.
int reportText(std::string_view text);

}  // namespace ferrox::command

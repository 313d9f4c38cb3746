// The version that the command reports.
#pragma once

namespace ferrox::command {

inline constexpr const char* version = FERROX_COMMAND_VERSION;

}  // namespace ferrox::command

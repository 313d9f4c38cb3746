// How subcommands are told which notifications to observe.
#pragma once

#include <string>
#include <vector>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Node/Observation.h"

namespace ferrox::command {

/// An option, or a positional argument, that takes one NAME[=FILTER] or more. `observations` has to outlive
/// the parsing, which tells what is wrong with one of them.
Argument declareObservations(CommandLine& subcommand, const std::string& name,
                             std::vector<Observation>& observations, const std::string& description);

}  // namespace ferrox::command

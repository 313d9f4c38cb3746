// How subcommands are told which notifications to observe.
#pragma once

#include <string>
#include <vector>

#include "Apps/ferrox/Node/Observation.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace ferrox::command {

/// An option, or a positional argument, that takes one NAME[=FILTER] or more. `observations` has to outlive
/// the parsing; what is wrong with one of them is said in a CLI::ParseError.
CLI::Option* declareObservations(CLI::App& subcommand, const std::string& option,
                                 std::vector<Observation>& observations, const std::string& description);

}  // namespace ferrox::command

#include "Apps/ferrox/Commands/DeclareObservations.h"

#include <utility>

namespace ferrox::command {

Argument declareObservations(CommandLine& subcommand, const std::string& name,
                             std::vector<Observation>& observations, const std::string& description) {
  const auto take = [&observations](const std::string& text) {
    std::string problem;
    auto observation = Observation::fromText(text, problem);
    if (observation) observations.push_back(std::move(*observation));
    return problem;
  };
  return subcommand.repeated(name, take, description).typeName("NAME[=FILTER]");
}

}  // namespace ferrox::command

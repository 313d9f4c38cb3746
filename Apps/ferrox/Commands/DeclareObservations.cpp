#include "Apps/ferrox/Commands/DeclareObservations.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace ferrox::command {

CLI::Option* declareObservations(CLI::App& subcommand, const std::string& option,
                                 std::vector<Observation>& observations, const std::string& description) {
  return subcommand
      .add_option_function<std::vector<std::string>>(
          option,
          [&observations, option](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              std::string problem;
              auto observation = Observation::fromText(text, problem);
              if (!observation) throw CLI::ValidationError(option, problem);
              observations.push_back(std::move(*observation));
            }
          },
          description)
      ->type_name("NAME[=FILTER]");
}

}  // namespace ferrox::command

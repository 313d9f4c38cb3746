#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {
namespace {

template <typename Named>
bool hasName(const std::vector<Named>& all, std::string_view name) {
  return std::any_of(all.begin(), all.end(), [&](const Named& one) { return one.name == name; });
}

}  // namespace

void checkArgumentNames(ValidationContext& context, const std::vector<Argument>& arguments) {
  std::map<std::string_view, std::vector<Location>> locations;
  for (const Argument& argument : arguments) locations[argument.name].push_back(argument.location);
  for (auto& [name, all] : locations) {
    if (all.size() > 1) context.report("There is more than one argument " + quoted(name), std::move(all));
  }
}

void checkArguments(ValidationContext& context, const std::vector<Argument>& arguments,
                    const std::vector<InputValueDefinition>& definitions, std::string_view owner,
                    Location location) {
  for (const Argument& argument : arguments) {
    if (!hasName(definitions, argument.name)) {
      context.report(quoted(owner) + " has no argument " + quoted(argument.name), {argument.location});
    }
  }
  for (const InputValueDefinition& definition : definitions) {
    if (definition.isRequired() && !hasName(arguments, definition.name)) {
      context.report(quoted(owner) + " needs the argument " + quoted(definition.name) + " of type " +
                         definition.type.text(),
                     {location});
    }
  }
}

}  // namespace ferrox::graphql

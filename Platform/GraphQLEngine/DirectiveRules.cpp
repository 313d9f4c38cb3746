#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {

void checkDirectives(ValidationContext& context, const std::vector<Directive>& directives,
                     std::string_view place) {
  std::map<std::string_view, Location> known;
  for (const Directive& directive : directives) {
    const DirectiveDefinition* const definition = context.schema.directive(directive.name);
    if (definition == nullptr) {
      context.report("There is no directive " + quoted(directive.name), {directive.location});
      continue;
    }
    const auto& places = definition->locations;
    if (std::find(places.begin(), places.end(), place) == places.end()) {
      context.report("The directive " + quoted(directive.name) + " must not stand at a " + std::string(place),
                     {directive.location});
    }
    if (definition->isRepeatable) continue;
    const auto [first, isNew] = known.emplace(directive.name, directive.location);
    if (!isNew) {
      context.report("The directive " + quoted(directive.name) + " must stand here only once",
                     {first->second, directive.location});
    }
  }
}

}  // namespace ferrox::graphql

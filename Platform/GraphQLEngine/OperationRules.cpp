#include <map>
#include <string>
#include <string_view>

#include "Platform/GraphQLEngine/ValidationRules.h"

namespace ferrox::graphql {

void checkOperationNames(ValidationContext& context) {
  std::map<std::string_view, Location> known;
  for (const OperationDefinition& operation : context.document.operations) {
    if (operation.name.empty()) {
      if (context.document.operations.size() > 1) {
        context.report("An operation without a name must be the only one", {operation.location});
      }
      continue;
    }
    const auto [first, isNew] = known.emplace(operation.name, operation.nameLocation);
    if (!isNew) {
      context.report("There is more than one operation " + quoted(operation.name),
                     {first->second, operation.nameLocation});
    }
  }
}

}  // namespace ferrox::graphql

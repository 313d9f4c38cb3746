#include "Classes/GraphQL/FRXGraphQLInterpreter.h"

#include "Classes/GraphQL/CapabilitiesSchema.h"
#include "Classes/GraphQL/FRXQueryType.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"

namespace ferrox {

FRXGraphQLInterpreter::FRXGraphQLInterpreter() : engine_(sharedCapabilitiesEngine()) {}

void FRXGraphQLInterpreter::query(const std::optional<std::string>& text,
                                  const ResponseCallback& onResponse) const {
  engine_->executeQuery(text.value_or(std::string()), GQLQueryType(), onResponse);
}

}  // namespace ferrox

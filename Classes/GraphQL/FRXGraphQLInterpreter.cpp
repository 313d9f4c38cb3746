#include "Classes/GraphQL/FRXGraphQLInterpreter.h"

#include <string_view>

#include "Classes/GraphQL/CapabilitiesSchema.h"
#include "Classes/GraphQL/FRXQueryType.h"
#include "Classes/GraphQL/KeptAnswers.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"

namespace ferrox {
namespace {

KeptAnswers& keptAnswers() {
  static auto& answers = *new KeptAnswers;
  return answers;
}

}  // namespace

FRXGraphQLInterpreter::FRXGraphQLInterpreter() : engine_(sharedCapabilitiesEngine()) {}

void FRXGraphQLInterpreter::query(const std::optional<std::string>& text,
                                  const ResponseCallback& onResponse) const {
  const std::string_view query = text ? std::string_view(*text) : std::string_view();
  const OffersState offers = OffersState::current();
  if (const auto answer = keptAnswers().find(query, offers)) return onResponse(*answer);
  engine_->executeQuery(query, GQLQueryType(), [&](const std::string& response) {
    keptAnswers().keep(query, offers, response);
    onResponse(response);
  });
}

}  // namespace ferrox

#include "Classes/GraphQL/FRXGraphQLInterpreter.h"

namespace ferrox {

void FRXGraphQLInterpreter::query(const std::optional<std::string>&,
                                  const ResponseCallback& onResponse) const {
  onResponse(R"({"errors":[{"message":"This instance has no schema to query."}]})");
}

}  // namespace ferrox

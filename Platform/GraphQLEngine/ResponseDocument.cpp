#include "Platform/GraphQLEngine/ResponseDocument.h"

#include <cstddef>
#include <string_view>
#include <vector>

#include "Platform/Base/Json.h"
#include "Platform/Base/Utf8.h"

namespace ferrox::graphql {
namespace {

template <typename Item, typename Append>
void appendArray(std::string& json, std::string_view member, const std::vector<Item>& items,
                 const Append& append) {
  if (items.empty()) return;
  json.append(member);
  char separator = '[';
  for (const Item& item : items) {
    json += separator;
    separator = ',';
    append(item);
  }
  json += ']';
}

void appendError(std::string& json, const GraphQLError& error) {
  json += R"({"message":)";
  // A resolver's failure may say anything.
  appendJsonString(json, isUtf8(error.message) ? error.message : "The field could not be resolved");
  appendArray(json, R"(,"locations":)", error.locations, [&](const Location& location) {
    json += R"({"line":)";
    appendJsonInteger(json, location.line);
    json += R"(,"column":)";
    appendJsonInteger(json, location.column);
    json += '}';
  });
  appendArray(json, R"(,"path":)", error.path, [&](const GraphQLError::PathSegment& segment) {
    if (const auto* const index = std::get_if<std::size_t>(&segment)) {
      appendJsonInteger(json, static_cast<std::int64_t>(*index));
    } else {
      appendJsonString(json, std::get<std::string>(segment));
    }
  });
  json += '}';
}

}  // namespace

std::string responseDocument(ExecutionResult result) {
  if (result.errors.empty()) return R"({"data":)" + std::move(result.data) + '}';
  std::string json = "{";
  appendArray(json, R"("errors":)", result.errors,
              [&](const GraphQLError& error) { appendError(json, error); });
  if (!result.data.empty()) json += R"(,"data":)" + result.data;
  json += '}';
  return json;
}

}  // namespace ferrox::graphql

// The GraphQL engine on the command line: graphql_probe SCHEMA DATA
//
// Reads requests from stdin, one JSON object a line ("query", "variables", "operationName"), and answers each
// with a line: the "stage" that ended it ("syntax", "validation" or "execution") and the engine's "response".
//
// Data is the root object. In every object "$type" names its type, and some values are more than they seem:
// {"$throw": TEXT} fails, {"$echo": true} is the JSON of the field's arguments, {"$argument": NAME} is one of
// them.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Platform/Base/Json.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Platform/GraphQLEngine/Parser.h"
#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/Validation.h"

namespace {

using namespace ferrox;

GraphQLValue resolved(const FRXValue& value, const FRXDictionary& arguments);

class DataObject : public GraphQLObject {
 public:
  explicit DataObject(const FRXDictionary& members) : members_(members) {}
  std::string_view typeName() const override {
    const auto type = members_.find("$type");
    return type == members_.end() ? std::string_view() : std::string_view(*type->second.asText());
  }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override {
    const auto found = members_.find(name);
    return found == members_.end() ? GraphQLValue() : resolved(found->second, arguments);
  }

 private:
  FRXDictionary members_;
};

GraphQLValue resolvedObject(const FRXDictionary& object, const FRXDictionary& arguments) {
  if (const auto text = object.find("$throw"); text != object.end()) {
    throw std::runtime_error(*text->second.asText());
  }
  if (object.contains("$echo")) return *writeJson(FRXDictionary{{"$arguments", arguments}});
  if (const auto name = object.find("$argument"); name != object.end()) {
    const auto given = arguments.find(*name->second.asText());
    return given == arguments.end() ? GraphQLValue() : resolved(given->second, {});
  }
  return std::make_shared<DataObject>(object);
}

GraphQLValue resolved(const FRXValue& value, const FRXDictionary& arguments) {
  if (const bool* const boolean = value.asBool()) return *boolean;
  if (const std::int64_t* const integer = value.asInteger()) return *integer;
  if (const double* const number = value.asDouble()) return *number;
  if (const std::string* const text = value.asText()) return *text;
  if (const FRXDictionary* const object = value.asObject()) return resolvedObject(*object, arguments);
  const FRXArray* const array = value.asArray();
  if (array == nullptr) return {};
  GraphQLList list;
  for (const FRXValue& item : *array) list.push_back(resolved(item, arguments));
  return list;
}

std::string contentOf(const char* path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error(std::string("cannot read ") + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string stageOf(const graphql::Schema& schema, const std::string& query) {
  const GraphQLLimits limits;
  graphql::GraphQLError error;
  const auto document = graphql::parseQuery(query, limits, error);
  if (!document) return "syntax";
  return graphql::validate(schema, *document, limits).empty() ? "execution" : "validation";
}

std::string textMember(const FRXValue& request, std::string_view name) {
  const FRXValue* const member = request.member(name);
  return member != nullptr && member->asText() != nullptr ? *member->asText() : std::string();
}

int answerAll(const char* schemaFile, const char* dataFile) {
  const std::string sdl = contentOf(schemaFile);
  graphql::GraphQLError schemaError;
  const auto schema = graphql::Schema::build(sdl, &schemaError);
  if (!schema) throw std::runtime_error(schemaError.message);
  const auto engine = GraphQLEngine::engineWithSchema(sdl, {});
  const auto data = parseJson(contentOf(dataFile));
  if (!data || data->asObject() == nullptr) throw std::runtime_error("the data is no JSON object");
  const DataObject root(*data->asObject());
  std::string line;
  while (std::getline(std::cin, line)) {
    const auto request = parseJson(line);
    if (!request) throw std::runtime_error("the request is no JSON");
    const std::string query = textMember(*request, "query");
    GraphQLEngine::Options options;
    options.operationName = textMember(*request, "operationName");
    const FRXValue* const variables = request->member("variables");
    if (variables != nullptr && variables->asObject() != nullptr) options.variables = *variables->asObject();
    std::string response;
    const auto keep = [&response](const std::string& text) { response = text; };
    engine->executeQuery(query, root, keep, options);
    std::cout << R"({"stage":")" << stageOf(*schema, query) << R"(","response":)" << response << '}'
              << std::endl;
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  try {
    return answerAll(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::cerr << "graphql_probe: " << error.what() << std::endl;
    return 1;
  }
}

// Makes a schema of its definitions.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Schema.h"
#include "Platform/GraphQLEngine/TypeSystemDocument.h"

namespace ferrox::graphql {

/// One pass for each step that needs the one before: types by name, what they consist of, the rules that
/// look at all of them.
class SchemaBuilder {
 public:
  /// Throws a `Refusal`, see `Schema::build`.
  static std::shared_ptr<const Schema> build(std::string_view sdl);

 private:
  enum class Position { Input, Output };

  SchemaBuilder() : schema_(new Schema) {}

  TypeSystemDocument read(std::string_view sdl);
  void declareTypes(const TypeSystemDocument& document);
  void defineTypes(const TypeSystemDocument& document);
  void defineDirectives(const TypeSystemDocument& document);
  void defineMetaFields();
  void defineRoot(const TypeSystemDocument& document);
  void setQueryType(std::string_view name, Location location);
  void leaveOutUnusedScalars(const TypeSystemDocument& builtIn);

  NamedType& declared(const TypeDefinitionNode& node);
  TypeReference reference(const TypeNode& node, Position position);
  TypeReference nonNull(std::string_view name);
  FieldDefinition field(const FieldNode& node);
  std::vector<InputValueDefinition> inputValues(const std::vector<InputValueNode>& nodes);

  std::shared_ptr<Schema> schema_;
  /// The types that something refers to.
  std::set<const NamedType*> used_;
};

}  // namespace ferrox::graphql

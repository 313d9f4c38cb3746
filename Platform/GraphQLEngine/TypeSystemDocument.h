// The definitions of an SDL text as they were written (GraphQL October 2021, section 3).
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"

namespace ferrox::graphql {

// Texts are views, as in Document.

struct DefinitionNode {
  std::optional<std::string_view> description;
  std::string_view name;
  Location location;
  std::vector<Directive> directives;
};

struct InputValueNode : DefinitionNode {
  TypeNode type;
  std::shared_ptr<const Value> defaultValue;
};

struct FieldNode : DefinitionNode {
  std::vector<InputValueNode> arguments;
  TypeNode type;
};

struct EnumValueNode : DefinitionNode {};

struct TypeDefinitionNode : DefinitionNode {
  enum class Kind { Scalar, Object, Enum, InputObject };
  Kind kind = Kind::Scalar;
  std::vector<FieldNode> fields;            ///< objects
  std::vector<EnumValueNode> enumValues;    ///< enums
  std::vector<InputValueNode> inputFields;  ///< input objects
};

struct DirectiveDefinitionNode : DefinitionNode {
  struct Place {
    std::string_view name;
    Location location;
  };
  std::vector<InputValueNode> arguments;
  std::vector<Place> places;
  bool isRepeatable = false;
};

/// Has no name.
struct SchemaDefinitionNode : DefinitionNode {
  struct Root {
    std::string_view operation;
    Location location;
    std::string_view type;
    Location typeLocation;
  };
  std::vector<Root> roots;
};

struct TypeSystemDocument {
  std::vector<SchemaDefinitionNode> schemas;
  std::vector<TypeDefinitionNode> types;
  std::vector<DirectiveDefinitionNode> directives;
};

}  // namespace ferrox::graphql

// The types that queries are asked against (GraphQL October 2021, section 3).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/GraphQLError.h"

namespace ferrox::graphql {

struct NamedType;

/// A named type, a list of something, or something that is never null (section 3.4.1). The referred types
/// belong to the schema.
struct TypeReference {
  enum class Kind { Named, List, NonNull };
  Kind kind = Kind::Named;
  const NamedType* named = nullptr;
  std::shared_ptr<const TypeReference> of;

  bool isNonNull() const { return kind == Kind::NonNull; }
  bool isList() const { return kind == Kind::List; }
  /// Without the "never null" around it.
  const TypeReference& nullable() const { return isNonNull() ? *of : *this; }
  /// The named type inside all wrappers.
  const NamedType& innermost() const { return kind == Kind::Named ? *named : of->innermost(); }
  /// As it is written in a schema.
  std::string text() const;
  bool operator==(const TypeReference& other) const;
};

/// An argument, or a field of an input object (sections 3.6.1 and 3.10).
struct InputValueDefinition {
  std::string name;
  std::optional<std::string> description;
  TypeReference type;
  /// As it was written; its texts belong to the schema.
  std::shared_ptr<const Value> defaultValue;
  std::optional<std::string> deprecationReason;

  bool isRequired() const { return type.isNonNull() && !defaultValue; }
};

struct FieldDefinition {
  std::string name;
  std::optional<std::string> description;
  std::vector<InputValueDefinition> arguments;
  TypeReference type;
  std::optional<std::string> deprecationReason;

  const InputValueDefinition* argument(std::string_view name) const;
};

struct EnumValueDefinition {
  std::string name;
  std::optional<std::string> description;
  std::optional<std::string> deprecationReason;
};

/// Interfaces and unions are not supported.
struct NamedType {
  enum class Kind { Scalar, Object, Enum, InputObject };
  Kind kind = Kind::Scalar;
  std::string name;
  std::optional<std::string> description;
  std::optional<std::string> specifiedByURL;      ///< scalars
  std::vector<FieldDefinition> fields;            ///< objects, as they were declared
  std::vector<EnumValueDefinition> enumValues;    ///< enums
  std::vector<InputValueDefinition> inputFields;  ///< input objects

  bool isInput() const { return kind != Kind::Object; }
  bool isOutput() const { return kind != Kind::InputObject; }
  bool isComposite() const { return kind == Kind::Object; }
  bool isLeaf() const { return kind == Kind::Scalar || kind == Kind::Enum; }
  const FieldDefinition* field(std::string_view name) const;
  const EnumValueDefinition* enumValue(std::string_view name) const;
  const InputValueDefinition* inputField(std::string_view name) const;
};

struct DirectiveDefinition {
  std::string name;
  std::optional<std::string> description;
  std::vector<InputValueDefinition> arguments;
  /// As written: "FIELD", "FRAGMENT_SPREAD", ...
  std::vector<std::string> locations;
  bool isRepeatable = false;

  const InputValueDefinition* argument(std::string_view name) const;
};

/// Never changes after it was built.
/// Thread: any
class Schema {
 public:
  /// Reads SDL text (section 3): schema, object, scalar, enum, input and directive definitions. Nothing, with
  /// `error` filled, when the text is malformed, names a type it does not declare, breaks a rule of section
  /// 3, holds a default value that is part of itself, is longer than 1 MiB, nests values or types more than
  /// 32 levels deep, or holds what is not supported: interfaces, unions, extensions, mutation and
  /// subscription roots. What is built in cannot be declared again.
  static std::shared_ptr<const Schema> build(std::string_view sdl, GraphQLError* error = nullptr);

  const NamedType& queryType() const { return *queryType_; }
  const NamedType* type(std::string_view name) const;
  const DirectiveDefinition* directive(std::string_view name) const;
  std::optional<std::string> description() const { return description_; }
  /// The declared types, then those built-in scalars that some type refers to (section 3.5), and the types of
  /// introspection (section 4).
  const std::vector<std::unique_ptr<NamedType>>& types() const { return types_; }
  const std::vector<DirectiveDefinition>& directives() const { return directives_; }
  /// `__schema`, `__type` or `__typename` (sections 4.1 and 4.2) where a query may ask for it, else the
  /// type's own field; null without one.
  const FieldDefinition* field(const NamedType& parent, std::string_view name) const;

 private:
  friend class SchemaBuilder;
  Schema() = default;

  std::vector<std::unique_ptr<NamedType>> types_;
  std::map<std::string_view, NamedType*> typesByName_;
  std::vector<DirectiveDefinition> directives_;
  const NamedType* queryType_ = nullptr;
  std::optional<std::string> description_;
  FieldDefinition schemaField_, typeField_, typeNameField_;
  /// What default values view.
  std::vector<std::unique_ptr<const std::string>> texts_;
};

}  // namespace ferrox::graphql

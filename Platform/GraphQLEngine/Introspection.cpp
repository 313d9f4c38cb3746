#include "Platform/GraphQLEngine/Introspection.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/GraphQLEngine/ValuePrinter.h"

namespace ferrox::graphql {
namespace {

GraphQLValue textOrNull(const std::optional<std::string>& text) {
  return text ? GraphQLValue(*text) : GraphQLValue();
}

template <typename Object, typename Definition>
GraphQLValue listOf(const std::vector<Definition>& definitions) {
  GraphQLList list;
  for (const Definition& definition : definitions)
    list.emplace_back(std::make_shared<const Object>(definition));
  return list;
}

/// Those that are deprecated only where `includeDeprecated` asks for them.
template <typename Object, typename Definition>
GraphQLValue listOfCurrent(const std::vector<Definition>& definitions, const FRXDictionary& arguments) {
  const auto asked = arguments.find("includeDeprecated");
  const bool* const includes = asked == arguments.end() ? nullptr : asked->second.asBool();
  GraphQLList list;
  for (const Definition& definition : definitions) {
    if (definition.deprecationReason && (includes == nullptr || !*includes)) continue;
    list.emplace_back(std::make_shared<const Object>(definition));
  }
  return list;
}

/// `__Type` (section 4.5.1) of a type as it stands at some place, or of a named type.
class TypeObject final : public GraphQLObject {
 public:
  explicit TypeObject(TypeReference type) : type_(std::move(type)) {}
  explicit TypeObject(const NamedType& type) { type_.named = &type; }

  std::string_view typeName() const override { return "__Type"; }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override;

 private:
  std::string_view kind() const {
    if (type_.isNonNull()) return "NON_NULL";
    if (type_.isList()) return "LIST";
    switch (type_.named->kind) {
      case NamedType::Kind::Scalar:
        return "SCALAR";
      case NamedType::Kind::Object:
        return "OBJECT";
      case NamedType::Kind::Enum:
        return "ENUM";
      case NamedType::Kind::InputObject:
        return "INPUT_OBJECT";
    }
    return {};
  }

  TypeReference type_;
};

/// `__InputValue`
class InputValueObject final : public GraphQLObject {
 public:
  explicit InputValueObject(const InputValueDefinition& definition) : definition_(definition) {}

  std::string_view typeName() const override { return "__InputValue"; }
  GraphQLValue property(std::string_view name, const FRXDictionary&) const override {
    if (name == "name") return definition_.name;
    if (name == "description") return textOrNull(definition_.description);
    if (name == "type") return std::make_shared<const TypeObject>(definition_.type);
    if (name == "defaultValue" && definition_.defaultValue) return printValue(*definition_.defaultValue);
    if (name == "isDeprecated") return definition_.deprecationReason.has_value();
    if (name == "deprecationReason") return textOrNull(definition_.deprecationReason);
    return {};
  }

 private:
  const InputValueDefinition& definition_;
};

/// `__Field`
class FieldObject final : public GraphQLObject {
 public:
  explicit FieldObject(const FieldDefinition& definition) : definition_(definition) {}

  std::string_view typeName() const override { return "__Field"; }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override {
    if (name == "name") return definition_.name;
    if (name == "description") return textOrNull(definition_.description);
    if (name == "args") return listOfCurrent<InputValueObject>(definition_.arguments, arguments);
    if (name == "type") return std::make_shared<const TypeObject>(definition_.type);
    if (name == "isDeprecated") return definition_.deprecationReason.has_value();
    if (name == "deprecationReason") return textOrNull(definition_.deprecationReason);
    return {};
  }

 private:
  const FieldDefinition& definition_;
};

/// `__EnumValue`
class EnumValueObject final : public GraphQLObject {
 public:
  explicit EnumValueObject(const EnumValueDefinition& definition) : definition_(definition) {}

  std::string_view typeName() const override { return "__EnumValue"; }
  GraphQLValue property(std::string_view name, const FRXDictionary&) const override {
    if (name == "name") return definition_.name;
    if (name == "description") return textOrNull(definition_.description);
    if (name == "isDeprecated") return definition_.deprecationReason.has_value();
    if (name == "deprecationReason") return textOrNull(definition_.deprecationReason);
    return {};
  }

 private:
  const EnumValueDefinition& definition_;
};

/// `__Directive`
class DirectiveObject final : public GraphQLObject {
 public:
  explicit DirectiveObject(const DirectiveDefinition& definition) : definition_(definition) {}

  std::string_view typeName() const override { return "__Directive"; }
  GraphQLValue property(std::string_view name, const FRXDictionary& arguments) const override {
    if (name == "name") return definition_.name;
    if (name == "description") return textOrNull(definition_.description);
    if (name == "locations") return GraphQLList(definition_.locations.begin(), definition_.locations.end());
    if (name == "args") return listOfCurrent<InputValueObject>(definition_.arguments, arguments);
    if (name == "isRepeatable") return definition_.isRepeatable;
    return {};
  }

 private:
  const DirectiveDefinition& definition_;
};

/// `__Schema`
class SchemaObject final : public GraphQLObject {
 public:
  explicit SchemaObject(const Schema& schema) : schema_(schema) {}

  std::string_view typeName() const override { return "__Schema"; }
  GraphQLValue property(std::string_view name, const FRXDictionary&) const override {
    if (name == "description") return textOrNull(schema_.description());
    if (name == "queryType") return std::make_shared<const TypeObject>(schema_.queryType());
    if (name == "directives") return listOf<DirectiveObject>(schema_.directives());
    if (name != "types") return {};
    GraphQLList types;
    for (const auto& type : schema_.types()) types.emplace_back(std::make_shared<const TypeObject>(*type));
    return types;
  }

 private:
  const Schema& schema_;
};

GraphQLValue TypeObject::property(std::string_view name, const FRXDictionary& arguments) const {
  if (name == "kind") return std::string(kind());
  if (name == "ofType") {
    return type_.of ? GraphQLValue(std::make_shared<const TypeObject>(*type_.of)) : GraphQLValue();
  }
  if (type_.named == nullptr) return {};
  const NamedType& type = *type_.named;
  if (name == "name") return type.name;
  if (name == "description") return textOrNull(type.description);
  if (name == "specifiedByURL") return textOrNull(type.specifiedByURL);
  switch (type.kind) {
    case NamedType::Kind::Object:
      if (name == "fields") return listOfCurrent<FieldObject>(type.fields, arguments);
      if (name == "interfaces") return GraphQLList();
      return {};
    case NamedType::Kind::Enum:
      if (name == "enumValues") return listOfCurrent<EnumValueObject>(type.enumValues, arguments);
      return {};
    case NamedType::Kind::InputObject:
      if (name == "inputFields") return listOfCurrent<InputValueObject>(type.inputFields, arguments);
      return {};
    case NamedType::Kind::Scalar:
      return {};
  }
  return {};
}

}  // namespace

GraphQLValue introspectedSchema(const Schema& schema) { return std::make_shared<const SchemaObject>(schema); }

GraphQLValue introspectedType(const Schema& schema, const FRXDictionary& arguments) {
  const auto name = arguments.find("name");
  const std::string* const text = name == arguments.end() ? nullptr : name->second.asText();
  const NamedType* const type = text == nullptr ? nullptr : schema.type(*text);
  if (type == nullptr) return {};
  return std::make_shared<const TypeObject>(*type);
}

}  // namespace ferrox::graphql

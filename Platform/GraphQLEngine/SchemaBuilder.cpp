#include "Platform/GraphQLEngine/SchemaBuilder.h"

#include <algorithm>
#include <utility>

#include "Platform/GraphQLEngine/IntrospectionSchema.h"
#include "Platform/GraphQLEngine/Refusal.h"
#include "Platform/GraphQLEngine/SchemaCycles.h"
#include "Platform/GraphQLEngine/SchemaRules.h"
#include "Platform/GraphQLEngine/TypeSystemParser.h"

namespace ferrox::graphql {
namespace {

constexpr std::size_t maxBytes = std::size_t{1} << 20;

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

std::optional<std::string> textOf(const std::optional<std::string_view>& view) {
  return view ? std::optional<std::string>(*view) : std::nullopt;
}

NamedType::Kind kindOf(TypeDefinitionNode::Kind kind) {
  switch (kind) {
    case TypeDefinitionNode::Kind::Scalar:
      return NamedType::Kind::Scalar;
    case TypeDefinitionNode::Kind::Object:
      return NamedType::Kind::Object;
    case TypeDefinitionNode::Kind::Enum:
      return NamedType::Kind::Enum;
    case TypeDefinitionNode::Kind::InputObject:
      return NamedType::Kind::InputObject;
  }
  return NamedType::Kind::Scalar;
}

/// The text argument of a directive, `otherwise` where the directive has no such argument, nothing without
/// the directive.
std::optional<std::string> textFrom(const std::vector<Directive>& directives, std::string_view directive,
                                    std::string_view argument, std::string_view otherwise) {
  for (const Directive& applied : directives) {
    if (applied.name != directive) continue;
    for (const Argument& given : applied.arguments) {
      if (given.name == argument && given.value.kind == Value::Kind::String) {
        return std::string(given.value.text);
      }
    }
    return std::string(otherwise);
  }
  return std::nullopt;
}

/// Section 3.13.3.
std::optional<std::string> deprecationReason(const DefinitionNode& node) {
  return textFrom(node.directives, "deprecated", "reason", "No longer supported");
}

}  // namespace

std::shared_ptr<const Schema> SchemaBuilder::build(std::string_view sdl) {
  if (sdl.size() > maxBytes) refuse("The schema is longer than " + std::to_string(maxBytes) + " bytes.");
  SchemaBuilder builder;
  const TypeSystemDocument document = builder.read(sdl);
  const TypeSystemDocument builtIn = builder.read(introspectionSchema);
  checkNames(document, builtIn);
  for (const auto* const part : {&document, &builtIn}) builder.declareTypes(*part);
  for (const auto* const part : {&document, &builtIn}) builder.defineTypes(*part);
  for (const auto* const part : {&document, &builtIn}) builder.defineDirectives(*part);
  builder.defineMetaFields();
  builder.defineRoot(document);
  builder.leaveOutUnusedScalars(builtIn);
  checkDirectiveUse(document, *builder.schema_);
  checkDefaultValues(*builder.schema_);
  checkCycles(document, *builder.schema_);
  return std::move(builder.schema_);
}

TypeSystemDocument SchemaBuilder::read(std::string_view sdl) {
  const std::string& source = *schema_->texts_.emplace_back(std::make_unique<const std::string>(sdl));
  return parseTypeSystem(source, schema_->texts_);
}

void SchemaBuilder::declareTypes(const TypeSystemDocument& document) {
  for (const TypeDefinitionNode& node : document.types) {
    auto type = std::make_unique<NamedType>();
    type->kind = kindOf(node.kind);
    type->name = node.name;
    type->description = textOf(node.description);
    schema_->typesByName_.emplace(type->name, type.get());
    schema_->types_.push_back(std::move(type));
  }
}

void SchemaBuilder::defineTypes(const TypeSystemDocument& document) {
  for (const TypeDefinitionNode& node : document.types) {
    NamedType& type = declared(node);
    type.specifiedByURL = textFrom(node.directives, "specifiedBy", "url", "");
    for (const FieldNode& one : node.fields) type.fields.push_back(field(one));
    for (const EnumValueNode& one : node.enumValues) {
      type.enumValues.push_back({std::string(one.name), textOf(one.description), deprecationReason(one)});
    }
    type.inputFields = inputValues(node.inputFields);
  }
}

void SchemaBuilder::defineDirectives(const TypeSystemDocument& document) {
  const NamedType& places = *schema_->type("__DirectiveLocation");
  for (const DirectiveDefinitionNode& node : document.directives) {
    DirectiveDefinition directive{
        std::string(node.name), textOf(node.description), inputValues(node.arguments), {}, node.isRepeatable};
    for (const auto& [name, location] : node.places) {
      if (places.enumValue(name) == nullptr) refuse(quoted(name) + " is no place for directives.", location);
      directive.locations.emplace_back(name);
    }
    schema_->directives_.push_back(std::move(directive));
  }
}

/// Sections 4.1 and 4.2.
void SchemaBuilder::defineMetaFields() {
  const TypeReference schemaType = nonNull("__Schema");
  schema_->schemaField_ = {"__schema", "The schema of this service.", {}, schemaType, std::nullopt};
  const InputValueDefinition name{"name", "The name of the type.", nonNull("String"), nullptr, std::nullopt};
  const TypeReference type = *nonNull("__Type").of;
  schema_->typeField_ = {"__type", "One type of this service.", {name}, type, std::nullopt};
  schema_->typeNameField_ = {
      "__typename", "The name of this object's type.", {}, nonNull("String"), std::nullopt};
}

void SchemaBuilder::defineRoot(const TypeSystemDocument& document) {
  constexpr std::string_view mutation = "Mutations are not supported.";
  constexpr std::string_view subscription = "Subscriptions are not supported.";
  if (document.schemas.empty()) {
    // These names make a type the root of its operations (section 3.3.1).
    for (const TypeDefinitionNode& type : document.types) {
      if (type.name == "Mutation") refuse(std::string(mutation), type.location);
      if (type.name == "Subscription") refuse(std::string(subscription), type.location);
    }
    return setQueryType("Query", {});
  }
  if (document.schemas.size() > 1) refuse("The schema is defined twice.", document.schemas[1].location);
  const SchemaDefinitionNode& node = document.schemas.front();
  schema_->description_ = textOf(node.description);
  for (const SchemaDefinitionNode::Root& root : node.roots) {
    if (root.operation == "mutation") refuse(std::string(mutation), root.location);
    if (root.operation == "subscription") refuse(std::string(subscription), root.location);
    if (root.operation != "query") refuse(quoted(root.operation) + " is no operation.", root.location);
    if (schema_->queryType_ != nullptr) refuse("\"query\" has two types.", root.location);
    setQueryType(root.type, root.typeLocation);
  }
}

void SchemaBuilder::setQueryType(std::string_view name, Location location) {
  const auto at = location.line == 0 ? std::vector<Location>() : std::vector{location};
  const NamedType* const type = schema_->type(name);
  if (type == nullptr) throw Refusal{{"There is no type " + quoted(name) + " to query.", at, {}}};
  if (!type->isComposite()) throw Refusal{{"Queries need an object; " + quoted(name) + " is none.", at, {}}};
  schema_->queryType_ = type;
}

/// Section 3.5: what nothing refers to must not be listed.
void SchemaBuilder::leaveOutUnusedScalars(const TypeSystemDocument& builtIn) {
  for (const TypeDefinitionNode& node : builtIn.types) {
    if (node.kind != TypeDefinitionNode::Kind::Scalar || used_.count(&declared(node)) > 0) continue;
    schema_->typesByName_.erase(schema_->typesByName_.find(node.name));
    std::erase_if(schema_->types_, [&](const auto& type) { return type->name == node.name; });
  }
}

NamedType& SchemaBuilder::declared(const TypeDefinitionNode& node) {
  return *schema_->typesByName_.find(node.name)->second;
}

/// Section 3.4.2.
TypeReference SchemaBuilder::reference(const TypeNode& node, Position position) {
  TypeReference type;
  if (node.kind != TypeNode::Kind::Named) {
    const bool isList = node.kind == TypeNode::Kind::List;
    type.kind = isList ? TypeReference::Kind::List : TypeReference::Kind::NonNull;
    type.of = std::make_shared<const TypeReference>(reference(*node.of, position));
    return type;
  }
  type.named = schema_->type(node.name);
  if (type.named == nullptr) refuse("The type " + quoted(node.name) + " is not declared.", node.location);
  if (position == Position::Input && !type.named->isInput()) {
    refuse("The type " + quoted(node.name) + " is for answers, not for arguments.", node.location);
  }
  if (position == Position::Output && !type.named->isOutput()) {
    refuse("The type " + quoted(node.name) + " is for arguments, not for answers.", node.location);
  }
  used_.insert(type.named);
  return type;
}

TypeReference SchemaBuilder::nonNull(std::string_view name) {
  TypeReference type;
  type.named = schema_->type(name);
  used_.insert(type.named);
  return {TypeReference::Kind::NonNull, nullptr, std::make_shared<const TypeReference>(std::move(type))};
}

FieldDefinition SchemaBuilder::field(const FieldNode& node) {
  return {std::string(node.name), textOf(node.description), inputValues(node.arguments),
          reference(node.type, Position::Output), deprecationReason(node)};
}

std::vector<InputValueDefinition> SchemaBuilder::inputValues(const std::vector<InputValueNode>& nodes) {
  std::vector<InputValueDefinition> definitions;
  definitions.reserve(nodes.size());
  for (const InputValueNode& node : nodes) {
    const InputValueDefinition& definition = definitions.emplace_back(InputValueDefinition{
        std::string(node.name), textOf(node.description), reference(node.type, Position::Input),
        node.defaultValue, deprecationReason(node)});
    if (definition.deprecationReason && definition.isRequired()) {
      refuse(quoted(node.name) + " is required, and so cannot be deprecated.", node.location);
    }
  }
  return definitions;
}

}  // namespace ferrox::graphql

#include "Platform/GraphQLEngine/Schema.h"

#include <algorithm>
#include <utility>

#include "Platform/GraphQLEngine/Refusal.h"
#include "Platform/GraphQLEngine/SchemaBuilder.h"

namespace ferrox::graphql {
namespace {

template <typename Definition>
const Definition* findNamed(const std::vector<Definition>& definitions, std::string_view name) {
  const auto found = std::find_if(definitions.begin(), definitions.end(),
                                  [name](const Definition& definition) { return definition.name == name; });
  return found == definitions.end() ? nullptr : &*found;
}

}  // namespace

std::string TypeReference::text() const {
  switch (kind) {
    case Kind::List:
      return '[' + of->text() + ']';
    case Kind::NonNull:
      return of->text() + '!';
    default:
      return named->name;
  }
}

bool TypeReference::operator==(const TypeReference& other) const {
  if (kind != other.kind) return false;
  return kind == Kind::Named ? named == other.named : *of == *other.of;
}

const InputValueDefinition* FieldDefinition::argument(std::string_view argument) const {
  return findNamed(arguments, argument);
}

const InputValueDefinition* DirectiveDefinition::argument(std::string_view argument) const {
  return findNamed(arguments, argument);
}

const FieldDefinition* NamedType::field(std::string_view field) const { return findNamed(fields, field); }

const EnumValueDefinition* NamedType::enumValue(std::string_view value) const {
  return findNamed(enumValues, value);
}

const InputValueDefinition* NamedType::inputField(std::string_view field) const {
  return findNamed(inputFields, field);
}

std::shared_ptr<const Schema> Schema::build(std::string_view sdl, GraphQLError* error) {
  try {
    return SchemaBuilder::build(sdl);
  } catch (Refusal& refusal) {
    if (error != nullptr) *error = std::move(refusal.error);
    return nullptr;
  }
}

const NamedType* Schema::type(std::string_view name) const {
  const auto found = typesByName_.find(name);
  return found == typesByName_.end() ? nullptr : found->second;
}

const DirectiveDefinition* Schema::directive(std::string_view name) const {
  return findNamed(directives_, name);
}

const FieldDefinition* Schema::field(const NamedType& parent, std::string_view name) const {
  if (name.starts_with("__")) {
    if (parent.isComposite() && name == typeNameField_.name) return &typeNameField_;
    if (&parent == queryType_ && name == schemaField_.name) return &schemaField_;
    if (&parent == queryType_ && name == typeField_.name) return &typeField_;
  }
  return parent.field(name);
}

}  // namespace ferrox::graphql

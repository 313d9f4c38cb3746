#include "Platform/GraphQLEngine/SchemaRules.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/ConstantLiteral.h"
#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {
namespace {

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

template <typename Node>
void checkMembers(const std::vector<Node>& nodes) {
  std::set<std::string_view> names;
  for (const Node& node : nodes) {
    if (node.name.starts_with("__")) {
      refuse(quoted(node.name) + " is reserved, as all names with two underscores in front.", node.location);
    }
    if (!names.insert(node.name).second) refuse(quoted(node.name) + " is declared twice.", node.location);
  }
}

template <typename Node>
void checkNotBuiltIn(const std::vector<Node>& nodes, const std::vector<Node>& builtIn) {
  std::set<std::string_view> names;
  for (const Node& node : builtIn) names.insert(node.name);
  for (const Node& node : nodes) {
    if (names.count(node.name) > 0) refuse(quoted(node.name) + " is built in.", node.location);
  }
}

void checkType(const TypeDefinitionNode& type) {
  checkMembers(type.fields);
  for (const FieldNode& field : type.fields) checkMembers(field.arguments);
  checkMembers(type.enumValues);
  checkMembers(type.inputFields);
  const bool isEmpty = type.fields.empty() && type.enumValues.empty() && type.inputFields.empty();
  if (isEmpty && type.kind != TypeDefinitionNode::Kind::Scalar) {
    refuse("There is nothing in the type " + quoted(type.name) + ".", type.location);
  }
}

/// Walks all that directives can be put on.
class DirectiveUse {
 public:
  explicit DirectiveUse(const Schema& schema) {
    for (const DirectiveDefinition& one : schema.directives()) definitions_.emplace(one.name, &one);
  }

  void check(const TypeSystemDocument& document) const {
    for (const SchemaDefinitionNode& schema : document.schemas) checkNode(schema, "SCHEMA");
    for (const TypeDefinitionNode& type : document.types) {
      checkNode(type, placeOf(type.kind));
      for (const FieldNode& field : type.fields) {
        checkNode(field, "FIELD_DEFINITION");
        checkNodes(field.arguments, "ARGUMENT_DEFINITION");
      }
      checkNodes(type.enumValues, "ENUM_VALUE");
      checkNodes(type.inputFields, "INPUT_FIELD_DEFINITION");
    }
    for (const DirectiveDefinitionNode& directive : document.directives) {
      checkNodes(directive.arguments, "ARGUMENT_DEFINITION");
    }
  }

 private:
  static std::string_view placeOf(TypeDefinitionNode::Kind kind) {
    switch (kind) {
      case TypeDefinitionNode::Kind::Scalar:
        return "SCALAR";
      case TypeDefinitionNode::Kind::Object:
        return "OBJECT";
      case TypeDefinitionNode::Kind::Enum:
        return "ENUM";
      case TypeDefinitionNode::Kind::InputObject:
        return "INPUT_OBJECT";
    }
    return {};
  }

  template <typename Node>
  void checkNodes(const std::vector<Node>& nodes, std::string_view place) const {
    for (const Node& node : nodes) checkNode(node, place);
  }

  void checkNode(const DefinitionNode& node, std::string_view place) const {
    std::set<std::string_view> seen;
    for (const Directive& directive : node.directives) {
      const std::string name = quoted('@' + std::string(directive.name));
      const auto found = definitions_.find(directive.name);
      if (found == definitions_.end()) refuse(name + " is not declared.", directive.location);
      const DirectiveDefinition& definition = *found->second;
      const auto& places = definition.locations;
      if (std::find(places.begin(), places.end(), place) == places.end()) {
        refuse(name + " cannot be put here.", directive.location);
      }
      if (!seen.insert(definition.name).second && !definition.isRepeatable) {
        refuse(name + " is put here twice.", directive.location);
      }
      checkArguments(directive, definition);
    }
  }

  static void checkArguments(const Directive& directive, const DirectiveDefinition& definition) {
    std::set<std::string_view> given;
    for (const Argument& argument : directive.arguments) {
      const InputValueDefinition* const declared = definition.argument(argument.name);
      if (declared == nullptr) {
        refuse("There is no argument " + quoted(argument.name) + " to it.", argument.location);
      }
      if (!given.insert(argument.name).second) {
        refuse("The argument " + quoted(argument.name) + " is given twice.", argument.location);
      }
      requireFit(argument.value, declared->type);
    }
    for (const InputValueDefinition& argument : definition.arguments) {
      if (!argument.isRequired() || given.count(argument.name) > 0) continue;
      refuse("The argument " + quoted(argument.name) + " is missing.", directive.location);
    }
  }

  std::map<std::string_view, const DirectiveDefinition*> definitions_;
};

void checkDefaults(const std::vector<InputValueDefinition>& definitions) {
  for (const InputValueDefinition& definition : definitions) {
    if (definition.defaultValue) requireFit(*definition.defaultValue, definition.type);
  }
}

}  // namespace

void checkNames(const TypeSystemDocument& document, const TypeSystemDocument& builtIn) {
  checkMembers(document.types);
  checkNotBuiltIn(document.types, builtIn.types);
  for (const TypeDefinitionNode& type : document.types) checkType(type);
  checkMembers(document.directives);
  checkNotBuiltIn(document.directives, builtIn.directives);
  for (const DirectiveDefinitionNode& directive : document.directives) checkMembers(directive.arguments);
}

void checkDirectiveUse(const TypeSystemDocument& document, const Schema& schema) {
  DirectiveUse(schema).check(document);
}

void checkDefaultValues(const Schema& schema) {
  for (const auto& type : schema.types()) {
    for (const FieldDefinition& field : type->fields) checkDefaults(field.arguments);
    checkDefaults(type->inputFields);
  }
  for (const DirectiveDefinition& directive : schema.directives()) checkDefaults(directive.arguments);
}

}  // namespace ferrox::graphql

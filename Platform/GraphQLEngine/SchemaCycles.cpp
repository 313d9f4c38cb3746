#include "Platform/GraphQLEngine/SchemaCycles.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/GraphCycles.h"
#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {
namespace {

std::string quoted(std::string_view name) { return '"' + std::string(name) + '"'; }

std::string_view innermostName(const TypeNode& type) {
  const TypeNode* node = &type;
  while (node->of) node = node->of.get();
  return node->name;
}

using Indices = std::map<std::string_view, std::size_t>;

template <typename Node>
Indices indicesOf(const std::vector<Node>& nodes) {
  Indices indices;
  for (std::size_t i = 0; i < nodes.size(); ++i) indices.emplace(nodes[i].name, i);
  return indices;
}

void addEdge(std::vector<std::size_t>& edges, const Indices& indices, std::string_view name,
             std::size_t offset = 0) {
  const auto found = indices.find(name);
  if (found != indices.end()) edges.push_back(offset + found->second);
}

void checkInputObjects(const TypeSystemDocument& document) {
  const Indices indices = indicesOf(document.types);
  Graph graph(document.types.size());
  for (std::size_t i = 0; i < graph.size(); ++i) {
    for (const InputValueNode& field : document.types[i].inputFields) {
      // A list may be empty, what is nullable may be null: both end the row.
      const bool isDemanded =
          field.type.kind == TypeNode::Kind::NonNull && field.type.of->kind == TypeNode::Kind::Named;
      if (isDemanded) addEdge(graph[i], indices, field.type.of->name);
    }
  }
  const std::vector<bool> isOnCycle = nodesOnCycles(graph);
  for (std::size_t i = 0; i < graph.size(); ++i) {
    const TypeDefinitionNode& type = document.types[i];
    if (isOnCycle[i]) refuse("Every " + quoted(type.name) + " would need another one.", type.location);
  }
}

/// Which input fields' defaults a default value takes in.
class DefaultValueGraph {
 public:
  explicit DefaultValueGraph(const Schema& schema) {
    for (const auto& type : schema.types()) {
      for (const InputValueDefinition& field : type->inputFields) {
        if (!field.defaultValue) continue;
        indices_.emplace(&field, fields_.size());
        fields_.push_back(&field);
      }
    }
    graph_.resize(fields_.size());
  }

  void check() {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      addEdges(graph_[i], *fields_[i]->defaultValue, fields_[i]->type.innermost());
    }
    const std::vector<bool> isOnCycle = nodesOnCycles(graph_);
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      if (!isOnCycle[i]) continue;
      refuse("The default value of " + quoted(fields_[i]->name) + " is part of itself.",
             fields_[i]->defaultValue->location);
    }
  }

 private:
  /// `type` is that of the objects in the literal, whatever lists are around them.
  void addEdges(std::vector<std::size_t>& edges, const Value& literal, const NamedType& type) const {
    for (const Value& item : literal.items) addEdges(edges, item, type);
    if (literal.kind != Value::Kind::Object) return;
    std::map<std::string_view, const Value*> given;
    for (const ObjectField& field : literal.fields) given.emplace(field.name, &field.value);
    for (const InputValueDefinition& field : type.inputFields) {
      if (const auto value = given.find(field.name); value != given.end()) {
        addEdges(edges, *value->second, field.type.innermost());
      } else if (const auto index = indices_.find(&field); index != indices_.end()) {
        edges.push_back(index->second);
      }
    }
  }

  std::vector<const InputValueDefinition*> fields_;
  std::map<const InputValueDefinition*, std::size_t> indices_;
  Graph graph_;
};

/// Which directives and types a directive or type refers to. The directives come first.
class DefinitionGraph {
 public:
  explicit DefinitionGraph(const TypeSystemDocument& document)
      : document_(document), directives_(indicesOf(document.directives)), types_(indicesOf(document.types)) {}

  void check() const {
    Graph graph;
    for (const DirectiveDefinitionNode& directive : document_.directives) {
      addInputValues(graph.emplace_back(), directive.arguments);
    }
    for (const TypeDefinitionNode& type : document_.types) addType(graph.emplace_back(), type);
    const std::vector<bool> isOnCycle = nodesOnCycles(graph);
    for (std::size_t i = 0; i < document_.directives.size(); ++i) {
      const DirectiveDefinitionNode& directive = document_.directives[i];
      if (isOnCycle[i]) refuse(quoted(directive.name) + " is defined by itself.", directive.location);
    }
  }

 private:
  using Edges = std::vector<std::size_t>;

  void addDirectives(Edges& edges, const DefinitionNode& node) const {
    for (const Directive& directive : node.directives) addEdge(edges, directives_, directive.name);
  }

  void addInputValues(Edges& edges, const std::vector<InputValueNode>& nodes) const {
    for (const InputValueNode& node : nodes) {
      addDirectives(edges, node);
      addEdge(edges, types_, innermostName(node.type), document_.directives.size());
    }
  }

  void addType(Edges& edges, const TypeDefinitionNode& type) const {
    addDirectives(edges, type);
    for (const EnumValueNode& value : type.enumValues) addDirectives(edges, value);
    addInputValues(edges, type.inputFields);
  }

  const TypeSystemDocument& document_;
  Indices directives_, types_;
};

}  // namespace

void checkCycles(const TypeSystemDocument& document, const Schema& schema) {
  checkInputObjects(document);
  DefaultValueGraph(schema).check();
  DefinitionGraph(document).check();
}

}  // namespace ferrox::graphql

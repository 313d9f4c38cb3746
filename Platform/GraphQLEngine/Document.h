// A parsed GraphQL request document (GraphQL October 2021, section 2).
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ferrox::graphql {

/// Where a token begins in its source; both count from 1, columns in code points.
struct Location {
  std::uint32_t line = 0;
  std::uint32_t column = 0;
  // NOLINTNEXTLINE(modernize-use-nullptr): clang-tidy 14 takes the default for a comparison with 0.
  auto operator<=>(const Location&) const = default;
};

// Every text below is a view into the document's source, or of what the document decoded from it.

struct ObjectField;

/// A literal or a variable (section 2.9).
struct Value {
  enum class Kind { Variable, Int, Float, String, Boolean, Null, Enum, List, Object };
  Kind kind = Kind::Null;
  Location location;
  /// The variable's name without "$", the number as it was written, the decoded string, "true" or "false",
  /// the enum value's name.
  std::string_view text;
  std::vector<Value> items;
  std::vector<ObjectField> fields;
};

struct ObjectField {
  std::string_view name;
  Location location;
  Value value;
};

struct Argument {
  std::string_view name;
  Location location;
  Value value;
};

struct Directive {
  std::string_view name;
  Location location;
  std::vector<Argument> arguments;
};

struct Selection;

struct SelectionSet {
  std::vector<Selection> selections;
  /// Of its opening brace.
  Location location;
  bool empty() const { return selections.empty(); }
};

struct Field {
  /// Empty without one.
  std::string_view alias;
  std::string_view name;
  Location location;
  std::vector<Argument> arguments;
  std::vector<Directive> directives;
  SelectionSet selectionSet;

  std::string_view responseKey() const { return alias.empty() ? name : alias; }
};

struct FragmentSpread {
  std::string_view name;
  Location location;
  Location nameLocation;
  std::vector<Directive> directives;
};

struct InlineFragment {
  /// Empty without one.
  std::string_view typeCondition;
  Location location;
  Location typeConditionLocation;
  std::vector<Directive> directives;
  SelectionSet selectionSet;
};

struct Selection {
  std::variant<Field, FragmentSpread, InlineFragment> node;
};

/// A type as it is written: "Int", "[Int!]!" (section 2.11).
struct TypeNode {
  enum class Kind { Named, List, NonNull };
  Kind kind = Kind::Named;
  Location location;
  std::string_view name;
  /// What is listed or not null.
  std::unique_ptr<TypeNode> of;
};

struct VariableDefinition {
  /// Without "$"; `location` is that of "$".
  std::string_view name;
  Location location;
  Location nameLocation;
  TypeNode type;
  /// Empty without one.
  std::unique_ptr<Value> defaultValue;
  std::vector<Directive> directives;
};

struct OperationDefinition {
  enum class Kind { Query, Mutation, Subscription };
  Kind kind = Kind::Query;
  /// Empty without one.
  std::string_view name;
  Location location;
  Location nameLocation;
  std::vector<VariableDefinition> variables;
  std::vector<Directive> directives;
  SelectionSet selectionSet;
};

struct FragmentDefinition {
  std::string_view name;
  Location location;
  Location nameLocation;
  std::string_view typeCondition;
  Location typeConditionLocation;
  std::vector<Directive> directives;
  SelectionSet selectionSet;
};

/// Owns the text that its parts view; may be moved, as that text stays where it is.
struct Document {
  std::vector<OperationDefinition> operations;
  std::vector<FragmentDefinition> fragments;
  std::vector<std::unique_ptr<const std::string>> texts;
};

}  // namespace ferrox::graphql

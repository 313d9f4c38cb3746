// What every schema has without declaring it: the built-in scalars and directives, and the types of
// introspection (GraphQL October 2021, sections 3.5, 3.13 and 4.2).
#pragma once

#include <string_view>

namespace ferrox::graphql {

/// SDL. Arguments and input fields can be deprecated too, as in later editions of the specification: tools
/// ask for it.
inline constexpr std::string_view introspectionSchema = R"GraphQL(
"A whole number of 32 bits, with a sign."
scalar Int

"A floating-point number of 64 bits."
scalar Float

"A text in Unicode."
scalar String

"True or false."
scalar Boolean

"Identifies something; written as a text, though a whole number is taken too."
scalar ID

"Includes what it is put on only when `if` is true."
directive @include(
  "Whether it is included."
  if: Boolean!
) on FIELD | FRAGMENT_SPREAD | INLINE_FRAGMENT

"Leaves out what it is put on when `if` is true."
directive @skip(
  "Whether it is left out."
  if: Boolean!
) on FIELD | FRAGMENT_SPREAD | INLINE_FRAGMENT

"Says that something is there for old clients only."
directive @deprecated(
  "Why, and what to use in its place; in Markdown."
  reason: String = "No longer supported"
) on FIELD_DEFINITION | ARGUMENT_DEFINITION | INPUT_FIELD_DEFINITION | ENUM_VALUE

"Says where the meaning of a scalar's values is laid down."
directive @specifiedBy(
  "Where to read it."
  url: String!
) on SCALAR

"All that can be asked of this service."
type __Schema {
  "What the schema is for."
  description: String
  "Every type of the service."
  types: [__Type!]!
  "The type that queries begin at."
  queryType: __Type!
  "The type that mutations begin at, when there are mutations."
  mutationType: __Type
  "The type that subscriptions begin at, when there are subscriptions."
  subscriptionType: __Type
  "Every directive of the service."
  directives: [__Directive!]!
}

"A type: a named one, a list of another, or another without null. `kind` tells which fields apply."
type __Type {
  "What kind of type it is."
  kind: __TypeKind!
  "Its name; lists and types without null have none."
  name: String
  "What it stands for."
  description: String
  "Where a scalar's values are specified, when that is known."
  specifiedByURL: String
  "The fields of an object or interface."
  fields(includeDeprecated: Boolean = false): [__Field!]
  "The interfaces that an object or interface implements."
  interfaces: [__Type!]
  "The objects that an interface or union may turn out to be."
  possibleTypes: [__Type!]
  "The values of an enum."
  enumValues(includeDeprecated: Boolean = false): [__EnumValue!]
  "The fields of an input object."
  inputFields(includeDeprecated: Boolean = false): [__InputValue!]
  "What is listed, or may not be null."
  ofType: __Type
}

"The kinds of types."
enum __TypeKind {
  "A leaf value, such as a number or a text."
  SCALAR
  "An object with fields."
  OBJECT
  "Fields that several objects have in common."
  INTERFACE
  "One of several objects."
  UNION
  "A leaf value out of a fixed set."
  ENUM
  "An object that is given as an argument."
  INPUT_OBJECT
  "A list of `ofType`."
  LIST
  "The values of `ofType` without null."
  NON_NULL
}

"A field of an object or interface."
type __Field {
  "Its name in queries."
  name: String!
  "What it answers."
  description: String
  "What it can be asked with."
  args(includeDeprecated: Boolean = false): [__InputValue!]!
  "The type of its answer."
  type: __Type!
  "Whether it should no longer be asked for."
  isDeprecated: Boolean!
  "Why it should not."
  deprecationReason: String
}

"An argument, or a field of an input object."
type __InputValue {
  "Its name in queries."
  name: String!
  "What it means."
  description: String
  "The type that its values must fit."
  type: __Type!
  "The value that stands in when none is given, as GraphQL text."
  defaultValue: String
  "Whether it should no longer be given."
  isDeprecated: Boolean!
  "Why it should not."
  deprecationReason: String
}

"One value of an enum."
type __EnumValue {
  "Its name, which is the value itself."
  name: String!
  "What it means."
  description: String
  "Whether it should no longer be used."
  isDeprecated: Boolean!
  "Why it should not."
  deprecationReason: String
}

"A directive: what can be said about a part of a query or of a schema, beside the part itself."
type __Directive {
  "Its name without the at sign."
  name: String!
  "What it does."
  description: String
  "Whether it may be put on the same place more than once."
  isRepeatable: Boolean!
  "Where it may be put."
  locations: [__DirectiveLocation!]!
  "What it is given."
  args(includeDeprecated: Boolean = false): [__InputValue!]!
}

"The places of directives."
enum __DirectiveLocation {
  "A query operation."
  QUERY
  "A mutation operation."
  MUTATION
  "A subscription operation."
  SUBSCRIPTION
  "A field of a selection set."
  FIELD
  "The definition of a fragment."
  FRAGMENT_DEFINITION
  "Where a fragment is spread by name."
  FRAGMENT_SPREAD
  "A fragment without a name."
  INLINE_FRAGMENT
  "The definition of a variable."
  VARIABLE_DEFINITION
  "The definition of a schema."
  SCHEMA
  "The definition of a scalar."
  SCALAR
  "The definition of an object."
  OBJECT
  "The definition of a field."
  FIELD_DEFINITION
  "The definition of an argument."
  ARGUMENT_DEFINITION
  "The definition of an interface."
  INTERFACE
  "The definition of a union."
  UNION
  "The definition of an enum."
  ENUM
  "The definition of one value of an enum."
  ENUM_VALUE
  "The definition of an input object."
  INPUT_OBJECT
  "The definition of a field of an input object."
  INPUT_FIELD_DEFINITION
}
)GraphQL";

}  // namespace ferrox::graphql

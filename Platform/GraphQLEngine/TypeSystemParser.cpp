#include "Platform/GraphQLEngine/TypeSystemParser.h"

#include <array>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Platform/GraphQLEngine/Refusal.h"
#include "Platform/GraphQLEngine/SyntaxReader.h"

namespace ferrox::graphql {
namespace {

using Kind = Token::Kind;

/// It is the host's own text, and far from these.
constexpr SyntaxReader::Limits limits{std::numeric_limits<std::size_t>::max(), 32};

/// One function for each production of section 3.
class TypeSystemParser : private SyntaxReader {
 public:
  TypeSystemParser(std::string_view source, Lexer::Texts& texts) : SyntaxReader(source, texts, limits) {}

  TypeSystemDocument parse() {
    do definition();
    while (!isAt(Kind::EndOfSource));
    return std::move(document_);
  }

 private:
  using Description = std::optional<std::string_view>;

  Description description() {
    if (!isAt(Kind::String)) return std::nullopt;
    return take().text;
  }

  void definition() {
    const Description text = description();
    if (skipKeyword("schema")) {
      document_.schemas.push_back(schemaDefinition(text));
    } else if (skipKeyword("directive")) {
      document_.directives.push_back(directiveDefinition(text));
    } else if (skipKeyword("scalar")) {
      document_.types.push_back(typeDefinition(TypeDefinitionNode::Kind::Scalar, text));
    } else if (skipKeyword("type")) {
      document_.types.push_back(typeDefinition(TypeDefinitionNode::Kind::Object, text));
    } else if (skipKeyword("enum")) {
      document_.types.push_back(typeDefinition(TypeDefinitionNode::Kind::Enum, text));
    } else if (skipKeyword("input")) {
      document_.types.push_back(typeDefinition(TypeDefinitionNode::Kind::InputObject, text));
    } else {
      refuseDefinition();
    }
  }

  [[noreturn]] void refuseDefinition() const {
    if (isAtKeyword("interface")) refuse("Interfaces are not supported.", location());
    if (isAtKeyword("union")) refuse("Unions are not supported.", location());
    if (isAtKeyword("extend")) refuse("Extensions are not supported.", location());
    constexpr std::array<std::string_view, 4> executable = {"query", "mutation", "subscription", "fragment"};
    for (const std::string_view word : executable) {
      if (isAtKeyword(word)) refuse('"' + std::string(word) + "\" has no place in a schema.", location());
    }
    refuseToken("a definition");
  }

  SchemaDefinitionNode schemaDefinition(Description text) {
    SchemaDefinitionNode schema;
    schema.description = text;
    schema.location = location();
    schema.directives = directives(Constness::Constant);
    expect(Kind::BraceLeft, "\"{\"");
    do {
      SchemaDefinitionNode::Root root;
      root.location = location();
      root.operation = name("\"query\"");
      expect(Kind::Colon, "\":\"");
      root.typeLocation = location();
      root.type = namedType();
      schema.roots.push_back(root);
    } while (!skip(Kind::BraceRight));
    return schema;
  }

  /// With the name and what stands before it.
  template <typename Node>
  Node begun(Description text, std::string_view what) {
    Node node;
    node.description = text;
    node.location = location();
    node.name = name(what);
    return node;
  }

  TypeDefinitionNode typeDefinition(TypeDefinitionNode::Kind kind, Description text) {
    auto type = begun<TypeDefinitionNode>(text, "the name of a type");
    type.kind = kind;
    if (isAtKeyword("implements")) refuse("Interfaces are not supported.", location());
    type.directives = directives(Constness::Constant);
    // Without a body it is grammatical, if of no use.
    if (kind == TypeDefinitionNode::Kind::Scalar || !skip(Kind::BraceLeft)) return type;
    do {
      if (kind == TypeDefinitionNode::Kind::Object) type.fields.push_back(fieldDefinition());
      if (kind == TypeDefinitionNode::Kind::Enum) type.enumValues.push_back(enumValueDefinition());
      if (kind == TypeDefinitionNode::Kind::InputObject) {
        type.inputFields.push_back(inputValueDefinition("the name of a field"));
      }
    } while (!skip(Kind::BraceRight));
    return type;
  }

  FieldNode fieldDefinition() {
    auto field = begun<FieldNode>(description(), "the name of a field");
    field.arguments = argumentDefinitions();
    expect(Kind::Colon, "\":\"");
    field.type = type();
    field.directives = directives(Constness::Constant);
    return field;
  }

  EnumValueNode enumValueDefinition() {
    const Description text = description();
    if (isAtKeyword("true") || isAtKeyword("false") || isAtKeyword("null")) refuseToken("another name");
    auto value = begun<EnumValueNode>(text, "the name of an enum value");
    value.directives = directives(Constness::Constant);
    return value;
  }

  std::vector<InputValueNode> argumentDefinitions() {
    std::vector<InputValueNode> arguments;
    if (!skip(Kind::ParenLeft)) return arguments;
    do arguments.push_back(inputValueDefinition("the name of an argument"));
    while (!skip(Kind::ParenRight));
    return arguments;
  }

  InputValueNode inputValueDefinition(std::string_view what) {
    auto input = begun<InputValueNode>(description(), what);
    expect(Kind::Colon, "\":\"");
    input.type = type();
    if (skip(Kind::Equals)) input.defaultValue = std::make_shared<const Value>(value(Constness::Constant));
    input.directives = directives(Constness::Constant);
    return input;
  }

  DirectiveDefinitionNode directiveDefinition(Description text) {
    expect(Kind::At, "\"@\"");
    auto directive = begun<DirectiveDefinitionNode>(text, "the name of a directive");
    directive.arguments = argumentDefinitions();
    directive.isRepeatable = skipKeyword("repeatable");
    expectKeyword("on");
    skip(Kind::Pipe);
    do {
      const Location here = location();
      directive.places.push_back({name("a place for the directive"), here});
    } while (skip(Kind::Pipe));
    return directive;
  }

  TypeSystemDocument document_;
};

}  // namespace

TypeSystemDocument parseTypeSystem(std::string_view source, Lexer::Texts& texts) {
  return TypeSystemParser(source, texts).parse();
}

}  // namespace ferrox::graphql

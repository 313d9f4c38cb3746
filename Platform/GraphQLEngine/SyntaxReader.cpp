#include "Platform/GraphQLEngine/SyntaxReader.h"

#include <memory>
#include <utility>

#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {

using Kind = Token::Kind;

SyntaxReader::Level::Level(std::size_t& depth, const SyntaxReader& reader) : depth_(depth) {
  if (depth >= reader.maxDepth_) {
    refuse("This is nested more than " + std::to_string(reader.maxDepth_) + " levels deep.",
           reader.location());
  }
  ++depth_;
}

void SyntaxReader::refuseToken(std::string_view expected) const {
  refuse("Expected " + std::string(expected) + ", found " + token_.description() + ".", location());
}

Token SyntaxReader::take() { return std::exchange(token_, lexer_.next()); }

Token SyntaxReader::expect(Kind kind, std::string_view what) {
  if (!isAt(kind)) refuseToken(what);
  return take();
}

void SyntaxReader::expectKeyword(std::string_view word) {
  if (!skipKeyword(word)) refuseToken('"' + std::string(word) + '"');
}

bool SyntaxReader::skip(Kind kind) {
  if (!isAt(kind)) return false;
  take();
  return true;
}

bool SyntaxReader::skipKeyword(std::string_view word) {
  if (!isAtKeyword(word)) return false;
  take();
  return true;
}

Value SyntaxReader::value(Constness constness) {
  const auto leaf = [this](Value::Kind kind) {
    const Token token = take();
    return Value{kind, token.location, token.text, {}, {}};
  };
  switch (token_.kind) {
    case Kind::Dollar:
      return variable(constness);
    case Kind::Int:
      return leaf(Value::Kind::Int);
    case Kind::Float:
      return leaf(Value::Kind::Float);
    case Kind::String:
      return leaf(Value::Kind::String);
    case Kind::BracketLeft:
      return list(constness);
    case Kind::BraceLeft:
      return object(constness);
    case Kind::Name:
      if (token_.text == "true" || token_.text == "false") return leaf(Value::Kind::Boolean);
      return leaf(token_.text == "null" ? Value::Kind::Null : Value::Kind::Enum);
    default:
      refuseToken("a value");
  }
}

Value SyntaxReader::variable(Constness constness) {
  const Location here = take().location;
  if (constness == Constness::Constant) refuse("A variable stands where the value must be known.", here);
  return {Value::Kind::Variable, here, name("the name of a variable"), {}, {}};
}

Value SyntaxReader::list(Constness constness) {
  const Level level(valueDepth_, *this);
  Value list{Value::Kind::List, take().location, {}, {}, {}};
  while (!skip(Kind::BracketRight)) list.items.push_back(value(constness));
  return list;
}

Value SyntaxReader::object(Constness constness) {
  const Level level(valueDepth_, *this);
  Value object{Value::Kind::Object, take().location, {}, {}, {}};
  while (!skip(Kind::BraceRight)) {
    const Location here = location();
    const std::string_view fieldName = name("a field's name or \"}\"");
    expect(Kind::Colon, "\":\"");
    object.fields.push_back({fieldName, here, value(constness)});
  }
  return object;
}

std::vector<Argument> SyntaxReader::arguments(Constness constness) {
  std::vector<Argument> arguments;
  if (!skip(Kind::ParenLeft)) return arguments;
  do {
    const Location here = location();
    const std::string_view argument = name("the name of an argument");
    expect(Kind::Colon, "\":\"");
    arguments.push_back({argument, here, value(constness)});
  } while (!skip(Kind::ParenRight));
  return arguments;
}

std::vector<Directive> SyntaxReader::directives(Constness constness) {
  std::vector<Directive> directives;
  while (isAt(Kind::At)) {
    const Location here = take().location;
    const std::string_view directive = name("the name of a directive");
    directives.push_back({directive, here, arguments(constness)});
  }
  return directives;
}

TypeNode SyntaxReader::type() {
  TypeNode type;
  type.location = location();
  if (isAt(Kind::BracketLeft)) {
    const Level level(typeDepth_, *this);
    take();
    type.kind = TypeNode::Kind::List;
    type.of = std::make_unique<TypeNode>(this->type());
    expect(Kind::BracketRight, "\"]\"");
  } else {
    type.name = name("a type");
  }
  if (!skip(Kind::Bang)) return type;
  TypeNode nonNull{TypeNode::Kind::NonNull, type.location, {}, nullptr};
  nonNull.of = std::make_unique<TypeNode>(std::move(type));
  return nonNull;
}

}  // namespace ferrox::graphql

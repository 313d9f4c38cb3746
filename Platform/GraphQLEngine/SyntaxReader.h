// The grammar that executable and type system documents have in common (GraphQL October 2021, sections 2.9 to
// 2.12): values, types, directives.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"
#include "Platform/GraphQLEngine/Lexer.h"

namespace ferrox::graphql {

/// Reads by recursive descent with one token of look-ahead; bounded, so that no source exhausts the stack.
/// Throws a `Refusal` at the first token that the grammar does not allow.
class SyntaxReader {
 public:
  struct Limits {
    std::size_t tokens;
    /// Of selection sets in each other, of values, and of types.
    std::size_t depth;
  };
  enum class Constness { Variable, Constant };

  SyntaxReader(std::string_view source, Lexer::Texts& texts, const Limits& limits)
      : lexer_(source, texts, limits.tokens), maxDepth_(limits.depth), token_(lexer_.next()) {}

 protected:
  /// One level of nesting, from the token that opens it.
  class Level {
   public:
    Level(std::size_t& depth, const SyntaxReader& reader);
    ~Level() { --depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

   private:
    std::size_t& depth_;
  };

  const Token& token() const { return token_; }
  Location location() const { return token_.location; }
  bool isAt(Token::Kind kind) const { return token_.kind == kind; }
  bool isAtKeyword(std::string_view word) const { return isAt(Token::Kind::Name) && token_.text == word; }
  [[noreturn]] void refuseToken(std::string_view expected) const;

  Token take();
  Token expect(Token::Kind kind, std::string_view what);
  void expectKeyword(std::string_view word);
  bool skip(Token::Kind kind);
  bool skipKeyword(std::string_view word);
  /// `what` is named.
  std::string_view name(std::string_view what) { return expect(Token::Kind::Name, what).text; }

  Value value(Constness constness);
  std::vector<Argument> arguments(Constness constness);
  std::vector<Directive> directives(Constness constness);
  TypeNode type();
  /// The named type after "on" and the like.
  std::string_view namedType() { return name("the name of a type"); }

 private:
  Value list(Constness constness);
  Value object(Constness constness);
  Value variable(Constness constness);

  Lexer lexer_;
  std::size_t maxDepth_;
  std::size_t valueDepth_ = 0;
  std::size_t typeDepth_ = 0;
  Token token_;
};

}  // namespace ferrox::graphql

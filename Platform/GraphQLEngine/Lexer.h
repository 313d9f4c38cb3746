// GraphQL source text to tokens (GraphQL October 2021, section 2.1 and appendix B.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/GraphQLEngine/Document.h"

namespace ferrox::graphql {

struct Token {
  enum class Kind : std::uint8_t {
    EndOfSource,
    Bang,
    Dollar,
    Ampersand,
    ParenLeft,
    ParenRight,
    Spread,
    Colon,
    Equals,
    At,
    BracketLeft,
    BracketRight,
    BraceLeft,
    Pipe,
    BraceRight,
    Name,
    Int,
    Float,
    String
  };
  Kind kind = Kind::EndOfSource;
  Location location;
  /// As it was written; of a string, what it means.
  std::string_view text;

  /// For people.
  std::string description() const;
};

/// Hands out the tokens of a source one after another, without what the grammar ignores. Throws a `Refusal`
/// for what is no token, and for the first token beyond the limit.
class Lexer {
 public:
  using Texts = std::vector<std::unique_ptr<const std::string>>;

  /// Tokens view the source, or what is added to `texts` where a string means something else than was
  /// written.
  Lexer(std::string_view source, Texts& texts, std::size_t maxTokens)
      : source_(source), texts_(texts), maxTokens_(maxTokens) {}

  /// At the end of the source the same again and again.
  Token next();

 private:
  bool isAtEnd() const { return position_ >= source_.size(); }
  bool has(std::string_view prefix) const { return source_.substr(position_).starts_with(prefix); }
  /// The next byte, 0 at the end.
  char byte() const { return isAtEnd() ? '\0' : source_[position_]; }
  /// Of the next byte.
  Location location() const;
  [[noreturn]] void refuseHere(const std::string& message) const;
  [[noreturn]] void refuseStrayCharacter();

  void skipIgnored();
  void skipLineTerminator();
  /// Anything else.
  void skipCharacter();

  Token punctuator(Token::Kind kind, std::size_t length);
  Token name();
  Token number();
  void skipDigits();
  Token string();
  Token blockString();
  void appendEscaped(std::string& value);
  void appendUnicodeEscaped(std::string& value);
  std::string_view keep(std::string text);

  std::string_view source_;
  Texts& texts_;
  std::size_t maxTokens_;
  std::size_t tokens_ = 0;
  std::size_t position_ = 0;
  std::uint32_t line_ = 1;
  std::size_t lineStart_ = 0;
  /// The bytes so far on this line that begin no character.
  std::size_t trailBytes_ = 0;
};

}  // namespace ferrox::graphql

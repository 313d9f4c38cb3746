#include "Platform/GraphQLEngine/Lexer.h"

#include <array>
#include <cstdio>
#include <optional>
#include <utility>

#include "Platform/Base/Utf8.h"
#include "Platform/GraphQLEngine/BlockString.h"
#include "Platform/GraphQLEngine/Refusal.h"

namespace ferrox::graphql {
namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view blockQuotes = R"(""")";
constexpr std::string_view escapedBlockQuotes = R"(\""")";

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

constexpr auto namePart = [] {
  std::array<bool, 256> table{};
  for (unsigned c = 0; c < 128; ++c) {
    table[c] = isNameStart(static_cast<char>(c)) || isDigit(static_cast<char>(c));
  }
  return table;
}();

/// Those of one character; the end of the source for all others.
constexpr auto punctuators = [] {
  using Kind = Token::Kind;
  std::array<Kind, 256> table{};
  table['!'] = Kind::Bang;
  table['$'] = Kind::Dollar;
  table['&'] = Kind::Ampersand;
  table['('] = Kind::ParenLeft;
  table[')'] = Kind::ParenRight;
  table[':'] = Kind::Colon;
  table['='] = Kind::Equals;
  table['@'] = Kind::At;
  table['['] = Kind::BracketLeft;
  table[']'] = Kind::BracketRight;
  table['{'] = Kind::BraceLeft;
  table['|'] = Kind::Pipe;
  table['}'] = Kind::BraceRight;
  return table;
}();

bool isNamePart(char c) { return namePart[static_cast<unsigned char>(c)]; }

bool isLeadingSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isTrailingSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// The UTF-16 unit that `text` begins with as "\uXXXX".
std::optional<char32_t> escapedUnit(std::string_view text) {
  if (text.size() < 6 || !text.starts_with("\\u")) return std::nullopt;
  char32_t unit = 0;
  for (const char c : text.substr(2, 4)) {
    const char letter = static_cast<char>(c | 0x20);
    if (isDigit(c)) {
      unit = unit << 4 | static_cast<char32_t>(c - '0');
    } else if (letter >= 'a' && letter <= 'f') {
      unit = unit << 4 | static_cast<char32_t>(letter - 'a' + 10);
    } else {
      return std::nullopt;
    }
  }
  return unit;
}

void appendUtf8(std::string& out, char32_t character) {
  const auto append = [&out](char32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
  if (character < 0x80) return append(character);
  const int trail = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  append((0xFF00U >> (trail + 1) & 0xFF) | character >> 6 * trail);
  for (int i = trail - 1; i >= 0; --i) append(0x80 | (character >> 6 * i & 0x3F));
}

}  // namespace

std::string Token::description() const {
  if (kind == Kind::EndOfSource) return "the end of the text";
  if (kind == Kind::String) return "a string";
  return '"' + std::string(text) + '"';
}

Token Lexer::next() {
  using Kind = Token::Kind;
  skipIgnored();
  if (isAtEnd()) return {Kind::EndOfSource, location(), {}};
  if (++tokens_ > maxTokens_) refuseHere("There are more than " + std::to_string(maxTokens_) + " tokens.");
  const char first = byte();
  if (isNameStart(first)) return name();
  if (isDigit(first) || first == '-') return number();
  const Kind kind = punctuators[static_cast<unsigned char>(first)];
  if (kind != Kind::EndOfSource) return punctuator(kind, 1);
  if (has("...")) return punctuator(Kind::Spread, 3);
  if (first == '"') return has(blockQuotes) ? blockString() : string();
  refuseStrayCharacter();
}

Location Lexer::location() const {
  return {line_, static_cast<std::uint32_t>(position_ - lineStart_ - trailBytes_ + 1)};
}

void Lexer::refuseHere(const std::string& message) const { refuse(message, location()); }

void Lexer::refuseStrayCharacter() {
  const Location here = location();
  if (byte() == '\'') refuseHere("Strings stand in double quotes (\").");
  if (byte() > ' ' && byte() < '\x7F') refuseHere(std::string("\"") + byte() + "\" begins nothing known.");
  skipCharacter();
  refuse("This character may stand in strings and comments only.", here);
}

void Lexer::skipIgnored() {
  for (;;) {
    switch (byte()) {
      case ' ':
      case '\t':
      case ',':
        ++position_;
        break;
      case '\n':
      case '\r':
        skipLineTerminator();
        break;
      case '#':
        while (!isAtEnd() && byte() != '\n' && byte() != '\r') skipCharacter();
        break;
      case byteOrderMark.front():
        if (!has(byteOrderMark)) return;
        skipCharacter();
        break;
      default:
        return;
    }
  }
}

void Lexer::skipLineTerminator() {
  position_ += has("\r\n") ? 2 : 1;
  ++line_;
  lineStart_ = position_;
  trailBytes_ = 0;
}

void Lexer::skipCharacter() {
  const auto first = static_cast<unsigned char>(source_[position_]);
  if (first < 0x20 && first != '\t') {
    std::array<char, 8> code{};
    std::snprintf(code.data(), code.size(), "U+%04X", first);
    refuseHere(std::string("The control character ") + code.data() + " may not be used.");
  }
  std::size_t end = position_ + 1;
  if (first >= 0x80) {
    end = position_;
    if (!nextCharacter(source_, end)) refuseHere("The text is not UTF-8.");
  }
  trailBytes_ += end - position_ - 1;
  position_ = end;
}

Token Lexer::punctuator(Token::Kind kind, std::size_t length) {
  const Token token{kind, location(), source_.substr(position_, length)};
  position_ += length;
  return token;
}

Token Lexer::name() {
  const std::size_t start = position_;
  const Location here = location();
  while (!isAtEnd() && isNamePart(source_[position_])) ++position_;
  return {Token::Kind::Name, here, source_.substr(start, position_ - start)};
}

Token Lexer::number() {
  const std::size_t start = position_;
  const Location here = location();
  Token::Kind kind = Token::Kind::Int;
  if (byte() == '-') ++position_;
  if (byte() == '0') {
    ++position_;
    if (isDigit(byte())) refuseHere("A number does not begin with further zeros.");
  } else {
    skipDigits();
  }
  if (byte() == '.') {
    kind = Token::Kind::Float;
    ++position_;
    skipDigits();
  }
  if (byte() == 'e' || byte() == 'E') {
    kind = Token::Kind::Float;
    ++position_;
    if (byte() == '+' || byte() == '-') ++position_;
    skipDigits();
  }
  if (byte() == '.' || isNameStart(byte())) refuseHere("A number is followed by something else at once.");
  return {kind, here, source_.substr(start, position_ - start)};
}

void Lexer::skipDigits() {
  if (!isDigit(byte())) refuseHere("A digit is missing here.");
  while (isDigit(byte())) ++position_;
}

Token Lexer::string() {
  const Location here = location();
  std::size_t start = ++position_;
  std::string value;
  while (byte() != '"') {
    if (isAtEnd() || byte() == '\n' || byte() == '\r') refuseHere("A string is not ended on its line.");
    if (byte() == '\\') {
      value.append(source_, start, position_ - start);
      appendEscaped(value);
      start = position_;
    } else {
      skipCharacter();
    }
  }
  const std::string_view rest = source_.substr(start, position_++ - start);
  if (value.empty()) return {Token::Kind::String, here, rest};
  return {Token::Kind::String, here, keep(value.append(rest))};
}

Token Lexer::blockString() {
  const Location here = location();
  position_ += blockQuotes.size();
  std::size_t start = position_;
  std::string raw;
  while (!has(blockQuotes)) {
    if (isAtEnd()) refuseHere("A block string is not ended.");
    if (has(escapedBlockQuotes)) {
      raw.append(source_, start, position_ - start).append(blockQuotes);
      position_ += escapedBlockQuotes.size();
      start = position_;
    } else if (byte() == '\n' || byte() == '\r') {
      skipLineTerminator();
    } else {
      skipCharacter();
    }
  }
  raw.append(source_, start, position_ - start);
  position_ += blockQuotes.size();
  return {Token::Kind::String, here, keep(blockStringValue(raw))};
}

void Lexer::appendEscaped(std::string& value) {
  constexpr std::string_view letters = R"("\/bfnrt)";
  constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
  if (has("\\u")) return appendUnicodeEscaped(value);
  const std::size_t letter =
      position_ + 1 < source_.size() ? letters.find(source_[position_ + 1]) : std::string_view::npos;
  if (letter == std::string_view::npos) refuseHere("This escape sequence means nothing.");
  value += meanings[letter];
  position_ += 2;
}

void Lexer::appendUnicodeEscaped(std::string& value) {
  constexpr std::size_t length = 6;
  const auto unit = escapedUnit(source_.substr(position_));
  if (!unit) refuseHere("\\u is followed by four hexadecimal digits.");
  char32_t character = *unit;
  std::size_t end = position_ + length;
  if (isLeadingSurrogate(character)) {
    const auto trailing = escapedUnit(source_.substr(end));
    if (trailing && isTrailingSurrogate(*trailing)) {
      character = 0x10000 + ((character - 0xD800) << 10 | (*trailing - 0xDC00));
      end += length;
    }
  }
  if (isLeadingSurrogate(character) || isTrailingSurrogate(character)) {
    refuseHere("A surrogate does not stand without its other half.");
  }
  appendUtf8(value, character);
  position_ = end;
}

std::string_view Lexer::keep(std::string text) {
  return *texts_.emplace_back(std::make_unique<const std::string>(std::move(text)));
}

}  // namespace ferrox::graphql

#include "Platform/GraphQLEngine/ValuePrinter.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

#include "Platform/Base/Utf8.h"

namespace ferrox::graphql {
namespace {

std::string_view shortEscape(char c) {
  switch (c) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\b':
      return "\\b";
    case '\f':
      return "\\f";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return {};
  }
}

void appendString(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t position = 0; position < text.size();) {
    const std::size_t start = position;
    const auto character = nextCharacter(text, position);
    const std::string_view escape = shortEscape(text[start]);
    if (!escape.empty()) {
      out += escape;
    } else if (character && (*character < 0x20 || (*character >= 0x7F && *character < 0xA0))) {
      std::array<char, 8> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\u%04X", static_cast<unsigned>(*character));
      out += escaped.data();
    } else {
      out += text.substr(start, position - start);
    }
  }
  out += '"';
}

void append(std::string& out, const Value& value) {
  const char* separator = "";
  switch (value.kind) {
    case Value::Kind::String:
      return appendString(out, value.text);
    case Value::Kind::List:
      out += '[';
      for (const Value& item : value.items) {
        out += std::exchange(separator, ", ");
        append(out, item);
      }
      out += ']';
      return;
    case Value::Kind::Object:
      out += '{';
      for (const ObjectField& field : value.fields) {
        out.append(std::exchange(separator, ", ")).append(field.name).append(": ");
        append(out, field.value);
      }
      out += '}';
      return;
    case Value::Kind::Variable:
      out += '$';
      out += value.text;
      return;
    case Value::Kind::Null:
      out += "null";
      return;
    default:
      out += value.text;
  }
}

}  // namespace

std::string printValue(const Value& value) {
  std::string text;
  append(text, value);
  return text;
}

}  // namespace ferrox::graphql

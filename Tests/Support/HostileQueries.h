// GraphQL queries that mean to cost much: shapes that brought servers down.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ferrox::test {

inline std::string repeated(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

/// `text` once for each number, which stands in place of each "#"; "+" is the number after it.
inline std::string numbered(std::string_view text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) {
    for (const char letter : text) {
      if (letter == '#' || letter == '+') {
        all += std::to_string(letter == '#' ? i : i + 1);
      } else {
        all += letter;
      }
    }
  }
  return all;
}

/// A query for the first of several fragments on Query. In the `body` of each "...F+" is the next one; `last`
/// is the body of the last.
inline std::string chainOfFragments(std::size_t count, std::string_view body, std::string_view last) {
  return "{...F0}" + numbered("fragment F# on Query{" + std::string(body) + "}", count) + "fragment F" +
         std::to_string(count) + " on Query{" + std::string(last) + "}";
}

/// To be asked of `hostileQuerySchema`.
struct HostileQuery {
  std::string name;
  std::string text;
};

inline constexpr const char* hostileQuerySchema =
    "type Query { a(x: Int): Int q: Query list(in: [Int]): [Query!] } directive @d repeatable on FIELD";

/// Each just as large as the limits of an engine let through, or larger, and each to be answered with an
/// error.
inline std::vector<HostileQuery> hostileQueries() {
  std::string everyOther;
  for (int i = 0; i < 13; ++i) {
    everyOther += "fragment F" + std::to_string(i) + " on Query{" + numbered("...F#", 13) + "}";
  }
  return {
      {"20,000 braces", repeated("{", 20'000)},
      {"braces of the size that is read", repeated("{q", 8000)},
      {"deep nesting", repeated("{q", 2000) + "{a}" + repeated("}", 2000)},
      {"deep nesting beyond the limit by one", repeated("{q", 15) + "{a}" + repeated("}", 15)},
      {"deep lists", "{list(in:" + repeated("[", 4000) + repeated("]", 4000) + "){a}}"},
      {"deep objects", "{list(in:" + repeated("{a:", 4000) + "1" + repeated("}", 4000) + "){a}}"},
      {"deep types", "query($a:" + repeated("[", 4000) + "Int" + repeated("]", 4000) + "){a}"},
      {"deep inline fragments", repeated("{...", 3000) + "{a}" + repeated("}", 3000)},
      {"nesting through fragments", chainOfFragments(20, "q{...F+}", "a")},
      {"a long way of fragments", chainOfFragments(60, "...F+", "a")},
      {"an alias bomb", "{" + numbered("a#:a ", 1600) + "}"},
      {"an alias bomb that multiplies", chainOfFragments(13, "a:q{...F+}b:q{...F+}c:q{...F+}", "a")},
      {"a fragment bomb", chainOfFragments(14, "...F+ ...F+ ...F+ ...F+ ...F+", "b")},
      {"a fragment bomb inside fields", chainOfFragments(14, "a:q{...F+}b:q{...F+}", "b")},
      {"a fragment bomb inside merged fields", chainOfFragments(14, "q{...F+}q{...F+}q{...F+}", "b")},
      {"a fragment inside itself", "{...F}fragment F on Query{" + repeated("...F ", 300) + "}"},
      {"a cycle of fragments", chainOfFragments(100, "...F+", "...F0")},
      {"a short cycle of fragments", chainOfFragments(10, "...F+", "...F0")},
      {"a cycle of fragments through fields", chainOfFragments(80, "q{...F+}", "q{...F0}")},
      {"cycles of each fragment with each other", "{...F0}" + everyOther},
      {"a flood of directives", "{a" + repeated("@d", 8000) + "}"},
      {"a flood of unknown directives", "{a" + repeated("@x", 490) + "}"},
      {"a flood of directives that may stand once", "{a" + repeated("@skip(if:1)", 140) + "}"},
      {"one response key with different arguments", "{" + numbered("a(x:#)", 160) + "}"},
      {"one response key with different fields", "{" + numbered("a:b# ", 320) + "}"},
      {"deeply merged fields", "{" + repeated("q{q{q{q{q{q{a}}}}}}", 45) + "q{q{q{q{q{q{a:q{a}}}}}}}}"},
      {"unknown fields", "{" + repeated("x ", 900) + "}"},
      {"unknown variables", "{list(in:[" + repeated("$x", 480) + "]){a}}"},
      {"unused variables", "query(" + numbered("$v#:Int", 240) + "){a}"},
      {"operations that share fragments",
       numbered("query Q#{...F}", 80) + "fragment F on Query{" + repeated("list(in:$x){a}", 40) + "}"},
      {"operations of one name", repeated("query Q{a}", 190)},
      {"arguments of one name", "{a(" + repeated("x:1 ", 320) + ")}"},
      {"unused fragments", "{a}" + numbered("fragment F# on Query{a}", 140)},
      {"a text without end", "{a(x:\"" + repeated("x", 16'000)},
      {"a block text without end", "{a(x:\"\"\"" + repeated("\n ", 8000)},
      {"one comment", repeated("#", 16'000)},
  };
}

}  // namespace ferrox::test

// What the command can be told: subcommands, options and positional arguments. The parser behind it is
// expensive to compile, so it shows in one source file only.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Apps/ferrox/ExitCode.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the parser's own name
class App;
class Option;
}  // namespace CLI

namespace ferrox::command {

/// Looks at one value as it was typed, or takes it; answers with what is wrong with it, or with nothing.
using ValueFunction = std::function<std::string(const std::string& text)>;

template <typename T>
concept ArgumentValue = std::same_as<T, std::string> || std::same_as<T, std::optional<std::string>> ||
    std::same_as<T, double> || std::same_as<T, int> || std::same_as<T, std::int64_t> ||
    std::same_as<T, std::uint16_t> || std::same_as<T, std::size_t>;

template <typename T>
concept RangeBound = std::same_as<T, int> || std::same_as<T, std::int64_t> || std::same_as<T, double>;

/// One option or positional argument, to say more about it. Not to be used after its command line is gone.
class Argument {
 public:
  Argument& required();
  /// What stands for the value in the help; usually the kind of the value, like "INT".
  Argument& typeName(const std::string& name);
  /// A number, both bounds included.
  template <RangeBound Number>
  Argument& range(Number least, Number most);
  /// One of these and nothing else; the message about another shows them in this order.
  Argument& oneOf(const std::vector<std::string>& words);
  /// Called with each value before the first is stored or handed over.
  Argument& check(const ValueFunction& check);

 private:
  friend class CommandLine;
  explicit Argument(CLI::Option& option) : option_(&option) {}

  CLI::Option* option_;
};

/// A command, or one of its subcommands, with all that it can be told. What is declared is stored, or handed
/// to functions, while `parse` runs: it has to live until then. A name that begins with dashes is an option,
/// any other a positional argument. Thread: main
class CommandLine {
 public:
  CommandLine(const std::string& name, const std::string& description);
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Once there is a subcommand, exactly one has to be chosen. It lives as long as this.
  CommandLine& subcommand(const std::string& name, const std::string& description);
  /// At most one value; what is not given stays as it is.
  template <ArgumentValue Value>
  Argument argument(const std::string& name, Value& value, const std::string& description);
  /// The same, for a value that is handed over as it was typed.
  Argument argument(const std::string& name, ValueFunction take, const std::string& description);
  /// Any number of values: an option takes one each time it is named, a positional argument all there are.
  Argument repeated(const std::string& name, std::vector<std::string>& values,
                    const std::string& description);
  /// The same, handing over one value after the other. The first that is refused ends it.
  Argument repeated(const std::string& name, ValueFunction take, const std::string& description);
  void flag(const std::string& name, bool& value, const std::string& description);
  /// Adds --version, which tells this text.
  void version(const std::string& text);
  /// Stands below the help.
  void footer(const std::string& text);
  /// For what only shows when all values are there; `check` answers with what is wrong, or with nothing.
  void checkTogether(std::function<std::string()> check);

  /// Reads what follows the command's name; for the command, not for its subcommands, and once. Nothing when
  /// there is something to do now. Otherwise the exit code: of help that was asked for and written to
  /// `output`, or of wrong usage, which was explained on `errors`.
  [[nodiscard]] std::optional<ExitCode> parse(std::vector<std::string> arguments, std::ostream& output,
                                              std::ostream& errors);
  /// Whether this subcommand was chosen.
  bool isChosen() const;
  /// Whether an option that was declared here was given.
  bool isGiven(const std::string& option) const;

 private:
  explicit CommandLine(CLI::App& parser);

  /// Of the command; subcommands have theirs in it.
  std::unique_ptr<CLI::App> ownParser_;
  CLI::App& parser_;
  std::vector<std::unique_ptr<CommandLine>> subcommands_;
};

}  // namespace ferrox::command

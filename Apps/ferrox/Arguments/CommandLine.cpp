#include "Apps/ferrox/Arguments/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

namespace ferrox::command {
namespace {

constexpr std::size_t helpColumn = 34;

bool isOption(const std::string& name) { return name.starts_with('-'); }

void refuse(const std::string& name, const std::string& problem) {
  if (!problem.empty()) throw CLI::ValidationError(name, problem);
}

/// An option with a vector would swallow the positional arguments after it, were it not kept to one value.
CLI::Option& keepToOneValue(CLI::Option& option, const std::string& name) {
  if (isOption(name)) option.allow_extra_args(false);
  return option;
}

}  // namespace

Argument& Argument::required() {
  option_->required();
  return *this;
}

Argument& Argument::typeName(const std::string& name) {
  option_->type_name(name);
  return *this;
}

// The empty descriptions keep what is checked out of the help, where it would be part of the type's name.

template <RangeBound Number>
Argument& Argument::range(Number least, Number most) {
  option_->check(CLI::Range(least, most).description(""));
  return *this;
}

template Argument& Argument::range(int, int);
template Argument& Argument::range(std::int64_t, std::int64_t);
template Argument& Argument::range(double, double);

Argument& Argument::oneOf(const std::vector<std::string>& words) {
  option_->check(CLI::IsMember(words).description(""));
  return *this;
}

Argument& Argument::check(const ValueFunction& check) {
  option_->check(CLI::Validator(check, ""));
  return *this;
}

CommandLine::CommandLine(const std::string& name, const std::string& description)
    : ownParser_(std::make_unique<CLI::App>(description, name)), parser_(*ownParser_) {
  parser_.get_formatter()->column_width(helpColumn);
}

CommandLine::CommandLine(CLI::App& parser) : parser_(parser) {}

CommandLine::~CommandLine() = default;

CommandLine& CommandLine::subcommand(const std::string& name, const std::string& description) {
  parser_.require_subcommand(1);
  CLI::App* const parser = parser_.add_subcommand(name, description);
  subcommands_.push_back(std::unique_ptr<CommandLine>(new CommandLine(*parser)));
  return *subcommands_.back();
}

template <ArgumentValue Value>
Argument CommandLine::argument(const std::string& name, Value& value, const std::string& description) {
  if constexpr (std::same_as<Value, std::optional<std::string>>) {
    // The parser itself would take an empty text for no value.
    const auto take = [&value](const std::string& text) {
      value = text;
      return "";
    };
    return argument(name, take, description);
  } else {
    return Argument(*parser_.add_option(name, value, description));
  }
}

template Argument CommandLine::argument(const std::string&, std::string&, const std::string&);
template Argument CommandLine::argument(const std::string&, std::optional<std::string>&, const std::string&);
template Argument CommandLine::argument(const std::string&, double&, const std::string&);
template Argument CommandLine::argument(const std::string&, int&, const std::string&);
template Argument CommandLine::argument(const std::string&, std::int64_t&, const std::string&);
template Argument CommandLine::argument(const std::string&, std::uint16_t&, const std::string&);
template Argument CommandLine::argument(const std::string&, std::size_t&, const std::string&);

Argument CommandLine::argument(const std::string& name, ValueFunction take, const std::string& description) {
  const auto takeOne = [name, take = std::move(take)](const std::string& text) { refuse(name, take(text)); };
  return Argument(*parser_.add_option_function<std::string>(name, takeOne, description));
}

Argument CommandLine::repeated(const std::string& name, std::vector<std::string>& values,
                               const std::string& description) {
  return Argument(keepToOneValue(*parser_.add_option(name, values, description), name));
}

Argument CommandLine::repeated(const std::string& name, ValueFunction take, const std::string& description) {
  const auto takeAll = [name, take = std::move(take)](const std::vector<std::string>& texts) {
    for (const std::string& text : texts) refuse(name, take(text));
  };
  return Argument(keepToOneValue(
      *parser_.add_option_function<std::vector<std::string>>(name, takeAll, description), name));
}

void CommandLine::flag(const std::string& name, bool& value, const std::string& description) {
  parser_.add_flag(name, value, description);
}

void CommandLine::version(const std::string& text) { parser_.set_version_flag("--version", text); }

void CommandLine::footer(const std::string& text) { parser_.footer(text); }

void CommandLine::checkTogether(std::function<std::string()> check) {
  parser_.parse_complete_callback([check = std::move(check)] {
    const std::string problem = check();
    if (!problem.empty()) throw CLI::ValidationError(problem);
  });
}

std::optional<ExitCode> CommandLine::parse(std::vector<std::string> arguments, std::ostream& output,
                                           std::ostream& errors) {
  // The parser takes them from the back.
  std::reverse(arguments.begin(), arguments.end());
  try {
    parser_.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return parser_.exit(error, output, errors) == 0 ? ExitDone : ExitUsage;
  }
  return std::nullopt;
}

bool CommandLine::isChosen() const { return parser_.parsed(); }

bool CommandLine::isGiven(const std::string& option) const { return parser_.count(option) > 0; }

}  // namespace ferrox::command

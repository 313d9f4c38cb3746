// One command as read from stdin, and its members, each checked when it is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

struct Command {
  std::string name;
  FRXValue members;
};

/// Reads members of the types that a command expects and remembers what was wrong first. A member that may be
/// left out may be null too: some languages write an absent value so.
class CommandMembers {
 public:
  explicit CommandMembers(const Command& command) : members_(command.members) {}

  /// "" where it is missing or no text.
  std::string text(std::string_view key);
  /// The same, and blank counts as missing.
  std::string name(std::string_view key);
  /// A text that is not blank, if there is one.
  std::optional<std::string> optionalName(std::string_view key);
  FRXDictionary optionalObject(std::string_view key);
  /// False when there is none.
  bool optionalFlag(std::string_view key);
  /// 0 when there is none.
  std::uint16_t optionalPort(std::string_view key);
  /// Nothing when there is none.
  std::optional<std::int64_t> optionalInteger(std::string_view key);
  std::optional<double> optionalNumber(std::string_view key);
  /// What no member tells by itself is wrong with this one.
  void refuse(std::string_view key, std::string_view expectation);

  /// What is wrong with the first bad member; empty while all were good.
  const std::string& problem() const { return problem_; }

 private:
  const FRXValue* optional(std::string_view key) const;

  const FRXValue& members_;
  std::string problem_;
};

}  // namespace ferrox::command

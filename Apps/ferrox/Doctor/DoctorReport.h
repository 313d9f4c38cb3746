// What an examination found, in words for people and as facts for programs.
#pragma once

#include <string>
#include <vector>

#include "Apps/ferrox/Terminal/Terminal.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

enum class Verdict {
  Good,
  /// Worth knowing; peers meet all the same.
  Note,
  /// Keeps peers from meeting.
  Bad,
};

/// "good", "note" or "bad".
std::string_view toString(Verdict verdict);

struct Finding {
  Verdict verdict = Verdict::Good;
  /// Raw text; escaped where it is shown.
  std::string text;
  FRXDictionary facts;
  /// What to do about it, such as "start the node there"; likewise raw, and empty for nothing.
  std::string advice = {};
};

/// One examination: what was looked at, and what was found.
struct Examination {
  /// For programs, such as "interfaces".
  std::string check;
  /// For people, such as "Network interfaces".
  std::string title;
  std::vector<Finding> findings;
};

class DoctorReport {
 public:
  void add(Examination examination) { examinations_.push_back(std::move(examination)); }

  bool foundProblem() const;
  /// About all of it: whether peers meet, why not, and what to do first.
  std::string conclusion() const;
  std::string text(const Style& style) const;
  /// The members of a "doctor" event.
  FRXDictionary members() const;

 private:
  std::vector<const Finding*> problems() const;

  std::vector<Examination> examinations_;
};

}  // namespace ferrox::command

#include "Apps/ferrox/Doctor/DoctorReport.h"

#include <fmt/format.h>

#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

std::string mark(Verdict verdict, const Style& style) {
  switch (verdict) {
    case Verdict::Good:
      return style(Tone::Good, "✓");
    case Verdict::Note:
      return style(Tone::Notice, "•");
    case Verdict::Bad:
      return style(Tone::Bad, "✗");
  }
  return " ";
}

}  // namespace

std::string_view toString(Verdict verdict) {
  switch (verdict) {
    case Verdict::Good:
      return "good";
    case Verdict::Note:
      return "note";
    case Verdict::Bad:
      return "bad";
  }
  return "";
}

std::vector<const Finding*> DoctorReport::problems() const {
  std::vector<const Finding*> out;
  for (const Examination& examination : examinations_) {
    for (const Finding& finding : examination.findings) {
      if (finding.verdict == Verdict::Bad) out.push_back(&finding);
    }
  }
  return out;
}

bool DoctorReport::foundProblem() const { return !problems().empty(); }

std::string DoctorReport::conclusion() const {
  const std::vector<const Finding*> all = problems();
  if (all.empty()) return "Nothing was found that would keep peers from meeting.";
  const Finding& first = *all.front();
  const std::string toDo = first.advice.empty() ? "" : " What to do: " + first.advice + ".";
  if (all.size() == 1) return "Peers may not meet: " + first.text + "." + toDo;
  return fmt::format("Peers may not meet, for {} reasons; first of all: {}.{}", all.size(), first.text, toDo);
}

std::string DoctorReport::text(const Style& style) const {
  std::string out;
  for (const Examination& examination : examinations_) {
    out += "\n  " + style(Tone::Strong, escapedForTerminal(examination.title)) + "\n";
    for (const Finding& finding : examination.findings) {
      out += "  " + mark(finding.verdict, style) + "  " + escapedForTerminal(finding.text) + "\n";
      if (!finding.advice.empty()) out += "     → " + escapedForTerminal(finding.advice) + "\n";
    }
  }
  return out + "\n  " + style(foundProblem() ? Tone::Bad : Tone::Good, escapedForTerminal(conclusion())) +
         "\n\n";
}

FRXDictionary DoctorReport::members() const {
  FRXArray findings;
  for (const Examination& examination : examinations_) {
    for (const Finding& finding : examination.findings) {
      FRXDictionary members = finding.facts;
      members["check"] = examination.check;
      members["verdict"] = toString(finding.verdict);
      members["text"] = finding.text;
      if (!finding.advice.empty()) members["advice"] = finding.advice;
      findings.emplace_back(std::move(members));
    }
  }
  return {{"ok", !foundProblem()}, {"conclusion", conclusion()}, {"findings", std::move(findings)}};
}

}  // namespace ferrox::command

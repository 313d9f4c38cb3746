// `ferrox object-id PREFIX`: identifiers for objects of an application.
#include <fmt/format.h>

#include <string>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Classes/Utilities/FRXObjectIDGenerator.h"
#include "Platform/Base/Utf8.h"

namespace ferrox::command {
namespace {

class ObjectIdCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("object-id", "makes object identifiers, one a line");
    line.argument("PREFIX", prefix_, "the type of the objects, which each identifier begins with")
        .required()
        .check([](const std::string& text) { return isUtf8(text) ? "" : "not UTF-8"; });
    line.argument("--count", count_, fmt::format("how many, at most {} (default: 1)", mostAtOnce))
        .typeName("N")
        .range(1, mostAtOnce);
    line.flag("--json", json_, "one JSON object a line");
    line.footer("Example:\n  ferrox object-id clip --count 3");
    return line;
  }

  int run() override {
    const FRXObjectIDGenerator& generator = FRXObjectIDGenerator::defaultInstance();
    for (int made = 0; made < count_; ++made) {
      const std::string identifier = generator.IDWithTypePrefix(prefix_);
      const int written =
          json_ ? reportEvent("result", {{"cmd", "object-id"}, {"ok", true}, {"id", identifier}})
                : reportText(identifier + "\n");
      if (written != ExitDone) return written;
    }
    return ExitDone;
  }

 private:
  // As many as one second has counter values for.
  static constexpr int mostAtOnce = 1 << 24;

  std::string prefix_;
  int count_ = 1;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makeObjectIdCommand() { return std::make_unique<ObjectIdCommand>(); }

}  // namespace ferrox::command

// The structure document of a project that a peer offers: whatever is accepted may be made into files and
// folders, and cutting the text into pieces changes nothing. The first byte of an input says how it is cut.
#include <set>
#include <string>

#include "Classes/Copy/ProjectStructureDocument.h"
#include "Fuzz/FuzzSupport.h"
#include "Platform/FileSystem/RootedPath.h"

namespace {

using namespace ferrox;

struct Reading {
  std::optional<ProjectStructureDocument> document;
  std::optional<FRXError> error;
};

Reading readInPieces(std::string_view text, std::size_t size) {
  ProjectStructureReader reader({.bytes = 4096, .entries = 64, .pathBytes = 512});
  bool isSound = true;
  for (std::size_t at = 0; at < text.size() && isSound; at += size)
    isSound = reader.write(text.substr(at, size));
  Reading result;
  result.document = reader.finish();
  result.error = reader.error();
  FUZZ_REQUIRE(result.document.has_value() != result.error.has_value());
  FUZZ_REQUIRE(isSound || !result.document);
  return result;
}

void judge(const PathList& paths, std::set<std::string>& all) {
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const std::string_view path = paths[i];
    FUZZ_REQUIRE(RootedPath::isConfined(path));
    FUZZ_REQUIRE(path.size() <= 512);
    FUZZ_REQUIRE(!whyUnusable(path));
    FUZZ_REQUIRE(all.emplace(path).second);
  }
}

bool isSame(const PathList& a, const PathList& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text = fuzz::asText(data + 1, size - 1);
  const Reading whole = readInPieces(text, text.size() + 1);
  const Reading pieces = readInPieces(text, data[0] % 32 + 1U);
  FUZZ_REQUIRE(whole.document.has_value() == pieces.document.has_value());
  if (!whole.document) return 0;
  FUZZ_REQUIRE(isSame(whole.document->files, pieces.document->files));
  FUZZ_REQUIRE(isSame(whole.document->directories, pieces.document->directories));
  std::set<std::string> all;
  judge(whole.document->directories, all);
  judge(whole.document->files, all);
  FUZZ_REQUIRE(all.size() <= 64);
  // No path leads through a file.
  const PathList& files = whole.document->files;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::string beneath = std::string(files[i]) + "/";
    const auto after = all.lower_bound(beneath);
    FUZZ_REQUIRE(after == all.end() || !after->starts_with(beneath));
  }
  if (const auto collision = caseCollision(*whole.document)) {
    FUZZ_REQUIRE(collision->first != collision->second);
    FUZZ_REQUIRE(all.contains(collision->first) && all.contains(collision->second));
  }
  return 0;
}

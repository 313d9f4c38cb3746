// The walk over a file's atoms, the file handed over in blocks that are cut anywhere.
//
// Input: a byte that tells how many cuts there are, that many bytes each of which is the length of a block,
// and the file. What the last cut leaves comes as one block.
#include <algorithm>
#include <cstdint>
#include <string_view>

#include "Classes/Copy/AtomWalk.h"
#include "Fuzz/FuzzSupport.h"

namespace {

using ferrox::AtomWalk;

struct Positions {
  std::uint64_t content = 0;
  std::uint64_t nextAtom = 0;
  bool stopped = false;
};

void hand(std::string_view block, Positions& positions) {
  const AtomWalk walk = AtomWalk::through(block, positions.content, positions.nextAtom);
  FUZZ_REQUIRE(walk.keep <= block.size());
  FUZZ_REQUIRE(walk.stops || walk.keep == block.size());
  FUZZ_REQUIRE(walk.nextAtomPosition >= positions.nextAtom);
  positions = {positions.content + walk.keep, walk.nextAtomPosition, walk.stops};
  FUZZ_REQUIRE(positions.nextAtom >= positions.content);
  // It stops nowhere but before a header.
  FUZZ_REQUIRE(!walk.stops || positions.content == positions.nextAtom);
  FUZZ_REQUIRE(!walk.foundContainer || walk.stops);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view input = ferrox::fuzz::asText(data, size);
  const std::size_t cuts = std::min<std::size_t>(data[0], size - 1);
  const std::string_view file = input.substr(1 + cuts);

  Positions uncut;
  if (!file.empty()) hand(file, uncut);

  Positions cut;
  std::string_view rest = file;
  for (const char length : input.substr(1, cuts)) {
    const auto block = rest.substr(0, static_cast<unsigned char>(length));
    if (block.empty() || cut.stopped) continue;
    hand(block, cut);
    rest.remove_prefix(block.size());
  }
  // Another run, which gets what is left at once, ends where the file in one block ends.
  rest = file.substr(static_cast<std::size_t>(cut.content));
  if (!rest.empty()) hand(rest, cut);
  FUZZ_REQUIRE(cut.content == uncut.content);
  FUZZ_REQUIRE(cut.nextAtom == uncut.nextAtom);
  return 0;
}

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "Classes/Copy/AtomWalk.h"
#include "Tests/Classes/Copy/AtomFile.h"

namespace ferrox::test {
namespace {

constexpr auto largest = std::numeric_limits<std::uint64_t>::max();

struct Positions {
  std::uint64_t content = 0;
  std::uint64_t nextAtom = 0;
  bool stopped = false;

  bool operator==(const Positions&) const = default;
};

/// One run over what the remote file has behind `positions.content`, handed over in blocks that end at
/// `cuts` (offsets in the file) and at its end.
Positions run(const std::string& file, Positions positions, std::vector<std::size_t> cuts) {
  positions.stopped = false;
  cuts.push_back(file.size());
  std::size_t begin = static_cast<std::size_t>(positions.content);
  for (const std::size_t end : cuts) {
    if (end <= begin) continue;
    const auto walk = AtomWalk::through(std::string_view(file).substr(begin, end - begin), positions.content,
                                        positions.nextAtom);
    EXPECT_LE(walk.keep, end - begin);
    positions.content += walk.keep;
    positions.nextAtom = walk.nextAtomPosition;
    positions.stopped = walk.stops;
    if (walk.stops) break;
    EXPECT_EQ(walk.keep, end - begin);
    begin = end;
  }
  return positions;
}

/// Where atoms begin, as far as their sizes say so.
std::vector<std::uint64_t> boundaries(const std::string& file) {
  std::vector<std::uint64_t> all;
  Positions positions;
  for (std::size_t size = 0; size <= file.size(); ++size) {
    positions = run(file.substr(0, size), {}, {});
    if (all.empty() || positions.nextAtom != all.back()) all.push_back(positions.nextAtom);
  }
  return all;
}

struct Sample {
  const char* name;
  std::string file;
};

std::vector<Sample> samples() {
  const std::string start = atom("ftyp", 12) + atom("wide", 0);
  return {
      {"complete", start + atom("mdat", 30) + atom("moov", 25)},
      {"64-bit media", start + extendedAtom("mdat", 20) + atom("moov", 9)},
      {"fragments", start + atom("moof", 5) + atom("mdat", 1) + atom("moof", 0) + atom("mdat", 17)},
      {"recording", start + atomHeader(0, "mdat") + filling(40)},
      {"cut within an atom", start + atomHeader(100, "mdat") + filling(30)},
      {"cut within a header", start + atom("mdat", 4) + atomHeader(9, "moov").substr(0, 6)},
      {"cut within a size", start + atom("mdat", 4) + atomHeader(9, "moov").substr(0, 3)},
      {"cut within an extended size", start + extendedAtomHeader(900, "mdat").substr(0, 13)},
      {"tiny sizes", atomHeader(2, "xx") + filling(3) + atom("mdat", 20)},
      {"container", start + std::string(12, '\0') + filling(20)},
      {"wrap", start + extendedAtomHeader(largest, "mdat") + filling(20)},
      {"64-bit size of 0", start + extendedAtomHeader(0, "mdat") + filling(20)},
  };
}

TEST(AtomWalkTests, AtomThatReachesBeyondTheBlockIsKeptAsFarAsItCame) {
  const auto walk = AtomWalk::through(atomHeader(1000, "mdat") + filling(492), 0, 0);
  EXPECT_EQ(walk.keep, 500u);
  EXPECT_FALSE(walk.stops);
  EXPECT_EQ(walk.nextAtomPosition, 1000u);
}

TEST(AtomWalkTests, BlockBeforeTheNextHeaderIsKeptWhole) {
  const auto walk = AtomWalk::through(std::string(100, '\0'), 500, 1000);
  EXPECT_EQ(walk.keep, 100u);
  EXPECT_FALSE(walk.stops);
  EXPECT_EQ(walk.nextAtomPosition, 1000u);
}

TEST(AtomWalkTests, HeaderAtTheVeryEndOfABlockIsLeftForTheNext) {
  const auto walk = AtomWalk::through(atom("ftyp", 12), 0, 0);
  EXPECT_EQ(walk.keep, 20u);
  EXPECT_FALSE(walk.stops);
  EXPECT_EQ(walk.nextAtomPosition, 20u);
}

TEST(AtomWalkTests, HeaderWhoseSizeEndsWithTheBlockStops) {
  for (std::size_t part = 1; part <= 4; ++part) {
    const auto walk = AtomWalk::through(atom("ftyp", 12) + atomHeader(99, "mdat").substr(0, part), 0, 0);
    EXPECT_EQ(walk.keep, 20u) << part;
    EXPECT_TRUE(walk.stops) << part;
    EXPECT_EQ(walk.nextAtomPosition, 20u) << part;
  }
  const auto walk = AtomWalk::through(atom("ftyp", 12) + atomHeader(99, "mdat").substr(0, 5), 0, 0);
  EXPECT_EQ(walk.keep, 25u);
  EXPECT_FALSE(walk.stops);
  EXPECT_EQ(walk.nextAtomPosition, 119u);
}

TEST(AtomWalkTests, ExtendedSizeIsNeededWithAByteMore) {
  const std::string header = extendedAtomHeader(std::uint64_t{5} << 32, "mdat") + "x";
  for (std::size_t part = 5; part <= 16; ++part) {
    const auto walk = AtomWalk::through(header.substr(0, part), 0, 0);
    EXPECT_EQ(walk.keep, 0u) << part;
    EXPECT_TRUE(walk.stops) << part;
  }
  const auto walk = AtomWalk::through(header, 0, 0);
  EXPECT_EQ(walk.keep, header.size());
  EXPECT_EQ(walk.nextAtomPosition, std::uint64_t{5} << 32);
}

TEST(AtomWalkTests, SizesAreReadWithoutSign) {
  const auto walk = AtomWalk::through(atomHeader(0xfffffff0, "mdat") + "x", 0, 0);
  EXPECT_EQ(walk.nextAtomPosition, 0xfffffff0u);
}

TEST(AtomWalkTests, UnknownSizeStopsBeforeItsHeader) {
  for (const std::string& header : {atomHeader(0, "mdat"), extendedAtomHeader(0, "mdat")}) {
    const auto walk = AtomWalk::through(atom("ftyp", 12) + header + filling(50), 0, 0);
    EXPECT_EQ(walk.keep, 20u);
    EXPECT_TRUE(walk.stops);
    EXPECT_EQ(walk.nextAtomPosition, 20u);
    EXPECT_FALSE(walk.foundContainer);
  }
}

TEST(AtomWalkTests, TenZeroBytesAreAContainerOnlyWithAByteBehindThem) {
  const std::string start = atom("ftyp", 12);
  EXPECT_TRUE(AtomWalk::through(start + std::string(11, '\0'), 0, 0).foundContainer);
  EXPECT_TRUE(AtomWalk::through(start + std::string(10, '\0') + "x", 0, 0).foundContainer);
  EXPECT_FALSE(AtomWalk::through(start + std::string(10, '\0'), 0, 0).foundContainer);
  EXPECT_FALSE(AtomWalk::through(start + std::string(9, '\0') + "xx", 0, 0).foundContainer);
  const auto walk = AtomWalk::through(start + std::string(30, '\0'), 0, 0);
  EXPECT_EQ(walk.keep, 20u);
  EXPECT_TRUE(walk.stops);
}

TEST(AtomWalkTests, SizesBelowAHeadersLengthAreTakenAsTheyAre) {
  // The next header is then read from within this one.
  constexpr std::uint64_t next[] = {0x00027878, 0x03787878, 0x78787878, 0x78787878, 0x78787878, 0x78787878};
  for (std::uint32_t size = 2; size <= 7; ++size) {
    const auto walk = AtomWalk::through(atomHeader(size, "xxxx") + std::string(8, 'x'), 0, 0);
    EXPECT_EQ(walk.nextAtomPosition, size + next[size - 2]) << size;
    EXPECT_EQ(walk.keep, 16u) << size;
    EXPECT_FALSE(walk.stops) << size;
  }
}

TEST(AtomWalkTests, SizeThatLeadsBeyond64BitsCountsAsUnknown) {
  const std::string last = extendedAtomHeader(largest - 20, "mdat") + "x";
  EXPECT_EQ(AtomWalk::through(last, 20, 20).nextAtomPosition, largest);
  const auto walk = AtomWalk::through(extendedAtomHeader(largest - 19, "mdat") + "x", 20, 20);
  EXPECT_EQ(walk.keep, 0u);
  EXPECT_TRUE(walk.stops);
  EXPECT_EQ(walk.nextAtomPosition, 20u);
}

TEST(AtomWalkTests, PositionsThatMakeNoSenseKeepNothing) {
  for (const auto& [content, next] :
       {std::pair{std::uint64_t{500}, std::uint64_t{499}}, std::pair{largest - 5, largest - 5},
        std::pair{largest, std::uint64_t{0}}}) {
    const auto walk = AtomWalk::through(filling(10), content, next);
    EXPECT_EQ(walk.keep, 0u);
    EXPECT_TRUE(walk.stops);
    EXPECT_EQ(walk.nextAtomPosition, next);
  }
}

TEST(AtomWalkTests, NothingHappensInABlockWithoutBytes) {
  for (const std::uint64_t next : {std::uint64_t{20}, std::uint64_t{30}}) {
    const auto walk = AtomWalk::through("", 20, next);
    EXPECT_EQ(walk.keep, 0u);
    EXPECT_FALSE(walk.stops);
    EXPECT_EQ(walk.nextAtomPosition, next);
  }
}

TEST(AtomWalkTests, EveryCutEndsAtAnAtomOrAtTheEnd) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    const auto atoms = boundaries(sample.file);
    for (std::size_t first = 0; first <= sample.file.size(); ++first) {
      for (std::size_t second = first; second <= sample.file.size(); ++second) {
        const Positions end = run(sample.file, {}, {first, second});
        ASSERT_TRUE(end.stopped || end.content == sample.file.size()) << first << ' ' << second;
        ASSERT_TRUE(!end.stopped || end.content == end.nextAtom) << first << ' ' << second;
        ASSERT_NE(std::find(atoms.begin(), atoms.end(), end.nextAtom), atoms.end()) << first << ' ' << second;
      }
    }
  }
}

TEST(AtomWalkTests, AnotherRunMakesUpForEveryCut) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    const Positions uncut = run(sample.file, {}, {});
    for (std::size_t first = 0; first <= sample.file.size(); ++first) {
      for (std::size_t second = first; second <= sample.file.size(); ++second) {
        Positions end = run(sample.file, {}, {first, second});
        if (end.content < sample.file.size()) end = run(sample.file, end, {});
        ASSERT_EQ(end.content, uncut.content) << first << ' ' << second;
        ASSERT_EQ(end.nextAtom, uncut.nextAtom) << first << ' ' << second;
      }
    }
  }
}

TEST(AtomWalkTests, BlocksOfEverySizeLeadToTheSameEndOfTheFile) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(sample.name);
    const Positions uncut = run(sample.file, {}, {});
    // Shorter blocks may never hold a header whole.
    for (std::size_t size = 17; size <= sample.file.size(); ++size) {
      Positions end;
      for (std::size_t runs = 0; runs < sample.file.size(); ++runs) {
        const Positions before = end;
        std::vector<std::size_t> cuts;
        for (auto at = static_cast<std::size_t>(end.content) + size; at < sample.file.size(); at += size) {
          cuts.push_back(at);
        }
        end = run(sample.file, end, cuts);
        if (end.content == before.content) break;
      }
      ASSERT_EQ(end.content, uncut.content) << size;
      ASSERT_EQ(end.nextAtom, uncut.nextAtom) << size;
    }
  }
}

}  // namespace
}  // namespace ferrox::test

#include "Classes/Copy/AtomWalk.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace ferrox {
namespace {

constexpr std::size_t sizeFieldLength = 4;
constexpr std::size_t extendedHeaderLength = 16;
constexpr std::size_t extendedSizeOffset = 8;
constexpr std::uint64_t sizeStandsBehindType = 1;
constexpr std::size_t containerReserve = 10;

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

bool leadsBeyond64Bits(std::uint64_t position, std::uint64_t distance) {
  return distance > std::numeric_limits<std::uint64_t>::max() - position;
}

/// Nothing when the block does not hold all of the size and more.
std::optional<std::uint64_t> atomSize(std::string_view atom) {
  if (atom.size() <= sizeFieldLength) return std::nullopt;
  const std::uint64_t size = bigEndian(atom.substr(0, sizeFieldLength));
  if (size != sizeStandsBehindType) return size;
  if (atom.size() <= extendedHeaderLength) return std::nullopt;
  return bigEndian(atom.substr(extendedSizeOffset, sizeof(std::uint64_t)));
}

bool isContainer(std::string_view atom) {
  if (atom.size() <= containerReserve) return false;
  const auto reserve = atom.substr(0, containerReserve);
  return std::all_of(reserve.begin(), reserve.end(), [](char byte) { return byte == 0; });
}

}  // namespace

AtomWalk AtomWalk::through(std::string_view block, std::uint64_t contentPosition,
                           std::uint64_t nextAtomPosition) {
  AtomWalk walk{.keep = block.size(), .stops = false, .nextAtomPosition = nextAtomPosition};
  if (nextAtomPosition < contentPosition || leadsBeyond64Bits(contentPosition, block.size())) {
    walk.keep = 0;
    walk.stops = true;
    return walk;
  }
  const std::uint64_t end = contentPosition + block.size();
  while (walk.nextAtomPosition <= end) {
    const auto header = static_cast<std::size_t>(walk.nextAtomPosition - contentPosition);
    const std::string_view atom = block.substr(header);
    const auto size = atomSize(atom);
    if (!size || *size == 0 || leadsBeyond64Bits(walk.nextAtomPosition, *size)) {
      walk.keep = header;
      walk.stops = !atom.empty();
      walk.foundContainer = size && isContainer(atom);
      return walk;
    }
    walk.nextAtomPosition += *size;
  }
  return walk;
}

}  // namespace ferrox

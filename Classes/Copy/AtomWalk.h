// Follows the top-level atoms of a QuickTime or MP4 file while its bytes pass in blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ferrox {

/// An atom (ISO/IEC 14496-12 section 4.2 calls it a box) begins with its size in 4 bytes, most significant
/// first, and its type in 4 more. A size of 1 means that the size stands in the 8 bytes behind the type, a
/// size of 0 that the atom reaches to the end of the file, however long that will be.
struct AtomWalk {
  /// How many bytes of the block are to be kept; what follows them is to be asked for again.
  std::size_t keep = 0;
  /// Whether the transfer ends here: at a header that is not complete in the block, or at an atom of unknown
  /// size. Such an atom's header is not kept.
  bool stops = false;
  /// Where in the file the next header stands that was not read yet.
  std::uint64_t nextAtomPosition = 0;
  /// Whether it stopped at ten zero bytes, with which a QuickTime atom container begins.
  bool foundContainer = false;

  /// Looks at one block that stands at `contentPosition` of the file, when the next header is expected at
  /// `nextAtomPosition`. A header whose size field ends exactly with the block counts as incomplete. A size
  /// below 8 is taken as it is. Unknown counts also a size that would lead beyond 64 bits; and where the
  /// header should have come before this block, nothing can be said of the block and none of it is kept.
  /// Thread: any
  static AtomWalk through(std::string_view block, std::uint64_t contentPosition,
                          std::uint64_t nextAtomPosition);
};

}  // namespace ferrox

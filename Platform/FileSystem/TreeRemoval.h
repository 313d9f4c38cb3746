// Removing a folder with everything in it.
#pragma once

#include <functional>
#include <string>

#include "Platform/Base/FRXError.h"

namespace ferrox {

/// Removes whatever stands at `path`: a folder with all that is beneath it, or a file. Symbolic links are
/// removed themselves and never followed, `path` itself included, and nothing outside of the tree is touched
/// even while others change it. Trees may be deeper than there are descriptors and than a path can be long.
/// True when nothing stands there afterwards; it ends at the first entry that cannot be removed, with an
/// error of `PosixErrorDomain`. `keepGoing`, when given, is asked before every entry and ends the removal
/// with ECANCELED. Thread: any; blocks on the disk
[[nodiscard]] bool removeTree(const std::string& path, FRXError* error = nullptr,
                              const std::function<bool()>& keepGoing = nullptr);

}  // namespace ferrox

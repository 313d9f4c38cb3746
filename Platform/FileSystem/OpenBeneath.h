// Opening beneath an opened directory, through no symbolic link.
#pragma once

#include <sys/types.h>

#include <string_view>

namespace ferrox {

/// open(2) of `relative` beneath the directory `root` (O_PATH is enough). `flags` should hold O_CLOEXEC.
/// `relative` must be confined (`RootedPath::isConfined`); an empty one is the root itself. -1 with errno:
/// ELOOP when it passes through a symbolic link or ends in one, else what the system says.
/// Thread: any; may block on the disk
[[nodiscard]] int openBeneath(int root, std::string_view relative, int flags, mode_t mode = 0);

/// The same one component at a time, for kernels before 5.6 and for sandboxes that know no openat2(2).
[[nodiscard]] int openBeneathStepwise(int root, std::string_view relative, int flags, mode_t mode = 0);

}  // namespace ferrox

// Asks a peer for the size of every file of a project.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Copy/PathList.h"
#include "Platform/Base/FRXError.h"
#include "Platform/PlatformServices.h"

namespace ferrox {

class OperationQueue;

/// What the probes need. Members that are borrowed outlive them.
struct FileSizeProbeSettings {
  PlatformServices platform;
  std::function<std::string(const std::string& path)> urlOf;
  std::function<bool()> isCancelled;
  double timeout = 0;  ///< seconds
  bool allowsEmptyFiles = false;
};

/// Sizes in the order of `files`. Nothing, with `error` filled, when a file could not be asked for or is
/// empty: then the error is the one of the first such file in that order. As the probes of later files cannot
/// change that, they are not waited for, nor begun.
/// Cancelled, the probes under way end at once, and files whose size is not known by then count as empty.
/// Blocks. Thread: any
[[nodiscard]] std::optional<std::vector<std::uint64_t>> probeFileSizes(const PathList& files,
                                                                       OperationQueue& queue,
                                                                       const FileSizeProbeSettings& settings,
                                                                       FRXError& error);

}  // namespace ferrox

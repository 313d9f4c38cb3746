// The statistics as members of a result.
#pragma once

#include "Platform/Base/FRXValue.h"

namespace ferrox {
struct FRXStatistics;
}

namespace ferrox::command {

/// Named as docs/observability.md tells.
FRXDictionary describe(const FRXStatistics& statistics);

}  // namespace ferrox::command

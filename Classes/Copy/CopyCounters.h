// The counts behind the statistics of copies.
#pragma once

#include <memory>

#include "Classes/Copy/FRXCopyStatistics.h"
#include "Platform/Base/Counter.h"

namespace ferrox {

/// Thread: any
struct CopyCounters {
  Counter started;
  Counter ended;
  Counter succeeded;
  Counter failed;
  Counter cancelled;
  Counter files;
  Counter bytes;

  /// Those of the process, for as long as it lives: copies are no one's but the host's.
  static const std::shared_ptr<CopyCounters>& shared();
  FRXCopyStatistics statistics() const;
};

}  // namespace ferrox

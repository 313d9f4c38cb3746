#include "Classes/Copy/CopyCounters.h"

namespace ferrox {

const std::shared_ptr<CopyCounters>& CopyCounters::shared() {
  // Never destroyed: copies may still end while the process does.
  static const auto& counters = *new std::shared_ptr<CopyCounters>(std::make_shared<CopyCounters>());
  return counters;
}

FRXCopyStatistics CopyCounters::statistics() const {
  return {.started = started.value(),
          .running = presentCount(started, ended),
          .succeeded = succeeded.value(),
          .failed = failed.value(),
          .cancelled = cancelled.value(),
          .files = files.value(),
          .bytes = bytes.value()};
}

}  // namespace ferrox

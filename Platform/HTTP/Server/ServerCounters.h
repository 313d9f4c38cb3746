// The counts behind a server's statistics.
#pragma once

#include "Platform/Base/Counter.h"
#include "Platform/HTTP/Server/HTTPServerStatistics.h"

namespace ferrox {

/// Apart from all else, so that counting disturbs nobody who only reads what would stand beside it.
/// Thread: any
struct alignas(64) ServerCounters {
  Counter connectionsAccepted;
  Counter connectionsRefused;
  Counter connectionsEnded;
  Counter upgrades;
  Counter succeeded;
  Counter clientErrors;
  Counter serverErrors;
  Counter bytesSent;
  Counter fileBytesServed;

  /// One request was answered so.
  void answered(int status) {
    if (status >= 500) {
      serverErrors.add();
    } else if (status >= 400) {
      clientErrors.add();
    } else {
      succeeded.add();
    }
  }

  HTTPServerStatistics statistics() const {
    return {.connectionsAccepted = connectionsAccepted.value(),
            .connectionsRefused = connectionsRefused.value(),
            .connectionsOpen = presentCount(connectionsAccepted, connectionsEnded),
            .upgrades = upgrades.value(),
            .succeeded = succeeded.value(),
            .clientErrors = clientErrors.value(),
            .serverErrors = serverErrors.value(),
            .bytesSent = bytesSent.value(),
            .fileBytesServed = fileBytesServed.value()};
  }
};

}  // namespace ferrox

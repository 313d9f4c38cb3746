#include "Platform/RunLoop/Clock.h"

namespace ferrox {
namespace {

class SystemClock : public Clock {
 public:
  Instant now() const override { return std::chrono::steady_clock::now(); }
  std::chrono::system_clock::time_point calendarNow() const override {
    return std::chrono::system_clock::now();
  }
};

}  // namespace

const Clock& Clock::system() {
  static const SystemClock* const clock = new SystemClock;
  return *clock;
}

}  // namespace ferrox

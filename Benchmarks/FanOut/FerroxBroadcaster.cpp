// Ours in the fan-out benchmark: each text is an outgoing notification, posted to the notification center and
// padded so that its message is as long as all others' texts.

#include <poll.h>

#include "Benchmarks/FanOut/Flow.h"
#include "Benchmarks/Support/KnownPeers.h"
#include "Benchmarks/Support/Stamp.h"
#include "Platform/RunLoop/RunLoop.h"

namespace {

using namespace ferrox;
using bench::Flow;

constexpr const char* notificationName = "TimelineChanged";

}  // namespace

int main(int argc, char** argv) {
  Flow flow(argc, argv);
  RunLoop& loop = RunLoop::main();
  loop.runPending();
  bench::KnownPeers peers(flow.peers(), flow.port());
  const auto center = FRXNotificationCenter::sharedCenter();
  std::string note = bench::noteForMessageOfSize(notificationName, bench::textSize);
  if (note.size() < bench::stampSize) return 1;

  const auto post = [&] {
    flow.postDue([&](std::uint32_t number, bool last) {
      bench::writeStamp(note.data(), number, last);
      center->postOutgoingNotification(notificationName, {{"note", note}}, std::nullopt, false);
    });
  };
  peers.connect([&] {
    flow.start();
    post();
  });
  pollfd watched[] = {{loop.descriptor(), POLLIN, 0}, {Flow::acknowledgements, POLLIN, 0}};
  while (!flow.isDone()) {
    if (::poll(watched, 2, -1) < 0) return 1;
    if (watched[1].revents != 0) {
      flow.takeAcknowledgements();
      post();
    }
    loop.runPending();
  }
  flow.report();
  return 0;
}

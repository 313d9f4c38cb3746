// Ours in the latency benchmark: from postOutgoingNotification in one process to an observer in the other,
// through notification center, connection manager, the server's endpoint and the other center.

#include "Benchmarks/Latency/Course.h"
#include "Benchmarks/Support/KnownPeers.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace {

using namespace ferrox;
using bench::Course;

constexpr const char* notificationName = "TimelineChanged";

int observe(const Course& course) {
  RunLoop& loop = RunLoop::main();
  bench::Arrivals arrivals(course.count);
  const auto observation = FRXNotificationCenter::sharedCenter()->addObserver(
      notificationName, std::nullopt, [&](const LocalNotification& notification) {
        const auto note = notification.userInfo.find("note");
        const bool hasText = note != notification.userInfo.end() && note->second.asText() != nullptr;
        arrivals.take(hasText ? *note->second.asText() : std::string());
        if (arrivals.isDone()) loop.stop();
      });
  FRXWebsocket::acceptUpgrades(loop);
  HTTPServer server(nullptr);
  server.setConnectionClass([] { return std::make_unique<RoutingHTTPConnection>(); });
  if (!server.start()) return 1;
  bench::announcePort(server.port());
  loop.run();
  arrivals.report();
  bench::awaitEnd();
  server.stop();
  return 0;
}

int post(const Course& course) {
  RunLoop& loop = RunLoop::main();
  loop.runPending();
  const auto center = FRXNotificationCenter::sharedCenter();
  bench::KnownPeers observer(1, course.port);
  std::string note = bench::noteForMessageOfSize(notificationName, bench::textSize);
  if (note.size() < bench::stampSize) return 1;

  std::uint32_t next = 0;
  std::unique_ptr<Timer> timer;
  const auto postOne = [&] {
    if (next == course.count) return loop.stop();
    bench::writeStamp(note.data(), next++, false);
    center->postOutgoingNotification(notificationName, {{"note", note}}, std::nullopt, false);
  };
  const auto failed = center->addObserver(FRXConnectionFailedWithErrorNotification, std::nullopt,
                                          [&](const LocalNotification&) { loop.stop(); });
  observer.connect([&] { timer = Timer::scheduleRepeating(loop, course.pause, postOne); });
  loop.run();
  timer.reset();
  bench::awaitEnd();
  return next == course.count ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const Course course(argc, argv);
  return course.isObserver ? observe(course) : post(course);
}

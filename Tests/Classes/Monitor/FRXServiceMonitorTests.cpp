#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Monitor/FRXServiceMonitor.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;
using Result = FRXServiceCheckResult;
using Status = FRXServiceResponseStatus;

// Keeps every check until the test answers it.
class HeldChecker : public FRXServiceChecker {
 public:
  void checkServiceForResponse(const std::shared_ptr<FRXNetService>& service,
                               Completion completion) override {
    const std::lock_guard lock(mutex_);
    serviceIds_.push_back(service->serviceId());
    threads_.push_back(std::this_thread::get_id());
    completions_.push_back(std::move(completion));
  }
  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return completions_.size();
  }
  std::vector<std::string> serviceIds() const {
    const std::lock_guard lock(mutex_);
    return serviceIds_;
  }
  std::thread::id thread(std::size_t index) const {
    const std::lock_guard lock(mutex_);
    return threads_.at(index);
  }
  void answer(std::size_t index, Result result) {
    Completion completion;
    {
      const std::lock_guard lock(mutex_);
      completion = completions_.at(index);
    }
    completion(result);
  }
  void forget() {
    const std::lock_guard lock(mutex_);
    completions_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> serviceIds_;
  std::vector<std::thread::id> threads_;
  std::vector<Completion> completions_;
};

class RecordingDelegate : public FRXServiceMonitorDelegate {
 public:
  void frxServiceMonitorServiceBecameResponsive(FRXServiceMonitor& monitor,
                                                const std::shared_ptr<FRXNetService>& service) override {
    add("responsive", monitor, service);
  }
  void frxServiceMonitorServiceBecameUnresponsive(FRXServiceMonitor& monitor,
                                                  const std::shared_ptr<FRXNetService>& service) override {
    add("unresponsive", monitor, service);
  }
  std::vector<std::string> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  std::vector<std::thread::id> threads() const {
    const std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  void add(const std::string& event, FRXServiceMonitor& monitor,
           const std::shared_ptr<FRXNetService>& service) {
    // Reads the monitor's state, which the listener must be able to do: it is called outside the lock.
    const auto known = monitor.monitoredServices();
    const std::lock_guard lock(mutex_);
    events_.push_back(event + " " + service->serviceId() +
                      (known.contains(service->serviceId()) ? "" : " gone"));
    threads_.push_back(std::this_thread::get_id());
  }
  mutable std::mutex mutex_;
  std::vector<std::string> events_;
  std::vector<std::thread::id> threads_;
};

using Events = std::vector<std::string>;

class FRXServiceMonitorTests : public ::testing::Test {
 protected:
  FRXServiceMonitorTests() {
    platform_.mainLoop = &loop_;
    platform_.background = background_.get();
    monitor_ = std::make_shared<FRXServiceMonitor>(delegate_, checker_, platform_);
  }

  static std::shared_ptr<FRXNetService> service(const std::string& host, std::int64_t port = 16654) {
    return std::make_shared<FRXNetService>(host, port, "name");
  }
  /// Lets one interval pass and waits until the pass has put `checks` checks to the checker.
  bool passInterval(std::size_t checks = 1) {
    const auto before = checker_->count();
    clock_.advance(FRXServiceMonitor::checkInterval, loop_);
    return waitFor([this, before, checks] { return checker_->count() == before + checks; });
  }
  /// A check of the one peer, answered.
  void check(Result result) {
    monitor_->checkServiceForResponse(peer_->serviceId());
    checker_->answer(checker_->count() - 1, result);
  }
  std::shared_ptr<FRXServiceMonitorStatusInfo> status() const {
    return monitor_->monitoredServices().at(peer_->serviceId());
  }

  ManualClock clock_;
  RunLoop loop_{clock_};
  std::unique_ptr<BackgroundQueue> background_ = BackgroundQueue::makePool(2);
  PlatformServices platform_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  std::shared_ptr<HeldChecker> checker_ = std::make_shared<HeldChecker>();
  std::shared_ptr<FRXServiceMonitor> monitor_;
  std::shared_ptr<FRXNetService> peer_ = service("mac.local.");
};

TEST_F(FRXServiceMonitorTests, TicksEveryThreeSecondsWhileThereIsAPeer) {
  EXPECT_FALSE(monitor_->isMonitoring());
  monitor_->startMonitoringService(peer_);
  EXPECT_TRUE(monitor_->isMonitoring());
  clock_.advance(2999ms, loop_);
  EXPECT_EQ(checker_->count(), 0u);
  clock_.advance(1ms, loop_);
  ASSERT_TRUE(waitFor([this] { return checker_->count() == 1; }));
  ASSERT_TRUE(passInterval());
  monitor_->stopMonitoringService(peer_);
  EXPECT_FALSE(monitor_->isMonitoring());
  clock_.advance(60s, loop_);
  background_.reset();
  EXPECT_EQ(checker_->count(), 2u);
}

TEST_F(FRXServiceMonitorTests, PassesRunInTheBackgroundOverAllPeers) {
  monitor_->startMonitoringService(peer_);
  monitor_->startMonitoringService(service("other.local."));
  monitor_->startMonitoringService(service("other.local.", 80));
  ASSERT_TRUE(passInterval(3));
  EXPECT_EQ(checker_->serviceIds(), (Events{"MAC.LOCAL.:16654", "OTHER.LOCAL.:16654", "OTHER.LOCAL.:80"}));
  EXPECT_NE(checker_->thread(0), std::this_thread::get_id());
}

TEST_F(FRXServiceMonitorTests, SecondStartKeepsTheOneEntryAndItsStatus) {
  monitor_->startMonitoringService(peer_);
  check(Result::Responded);
  monitor_->startMonitoringService(service("mac.local."));
  EXPECT_EQ(monitor_->monitoredServices().size(), 1u);
  EXPECT_EQ(status()->responseStatus, Status::Responsive);
  EXPECT_EQ(status()->service, peer_);
  ASSERT_TRUE(passInterval(1));
}

TEST_F(FRXServiceMonitorTests, StoppingOneOfTwoGoesOnWithTheOther) {
  const auto other = service("other.local.");
  monitor_->startMonitoringService(peer_);
  monitor_->startMonitoringService(other);
  monitor_->stopMonitoringService(service("stranger.local."));
  monitor_->stopMonitoringService(peer_);
  EXPECT_TRUE(monitor_->isMonitoring());
  ASSERT_TRUE(passInterval(1));
  EXPECT_EQ(checker_->serviceIds().back(), "OTHER.LOCAL.:16654");
}

TEST_F(FRXServiceMonitorTests, StartingAgainBeginsAtUnknown) {
  monitor_->startMonitoringService(peer_);
  check(Result::Responded);
  monitor_->stopMonitoringService(peer_);
  monitor_->startMonitoringService(peer_);
  EXPECT_EQ(status()->responseStatus, Status::Unknown);
  ASSERT_TRUE(passInterval());
}

TEST_F(FRXServiceMonitorTests, SingleFailuresBetweenAnswersAreForgiven) {
  monitor_->startMonitoringService(peer_);
  for (const auto result : {Result::NoResponse, Result::Responded, Result::NoResponse, Result::Responded}) {
    check(result);
  }
  EXPECT_EQ(delegate_->events(), Events{"responsive MAC.LOCAL.:16654"});
  EXPECT_EQ(status()->consecutiveFailedRequests, 0u);
}

TEST_F(FRXServiceMonitorTests, SecondFailureInARowIsReportedAndTheThirdIsNot) {
  monitor_->startMonitoringService(peer_);
  check(Result::NoResponse);
  EXPECT_TRUE(delegate_->events().empty());
  EXPECT_EQ(status()->responseStatus, Status::Unknown);
  check(Result::NoResponse);
  EXPECT_EQ(delegate_->events(), Events{"unresponsive MAC.LOCAL.:16654"});
  EXPECT_EQ(status()->responseStatus, Status::Unresponsive);
  check(Result::NoResponse);
  EXPECT_EQ(delegate_->events().size(), 1u);
  EXPECT_EQ(status()->consecutiveFailedRequests, 2u);
}

TEST_F(FRXServiceMonitorTests, AnswerAfterFailuresIsReported) {
  monitor_->startMonitoringService(peer_);
  for (const auto result : {Result::NoResponse, Result::NoResponse, Result::Responded, Result::NoResponse}) {
    check(result);
  }
  EXPECT_EQ(delegate_->events(), (Events{"unresponsive MAC.LOCAL.:16654", "responsive MAC.LOCAL.:16654"}));
  EXPECT_EQ(status()->consecutiveFailedRequests, 1u);
}

TEST_F(FRXServiceMonitorTests, ResponsivePeerThatFailsTwiceIsReported) {
  monitor_->startMonitoringService(peer_);
  for (const auto result : {Result::Responded, Result::NoResponse, Result::NoResponse}) check(result);
  EXPECT_EQ(delegate_->events(), (Events{"responsive MAC.LOCAL.:16654", "unresponsive MAC.LOCAL.:16654"}));
}

TEST_F(FRXServiceMonitorTests, CancelledCheckIsLoggedAndChangesNothing) {
  LogRecording log;
  monitor_->startMonitoringService(peer_);
  check(Result::NoResponse);
  check(Result::Cancelled);
  EXPECT_EQ(status()->responseStatus, Status::Unknown);
  EXPECT_EQ(status()->consecutiveFailedRequests, 1u);
  EXPECT_TRUE(delegate_->events().empty());
  EXPECT_TRUE(
      log->has(LogLevel::Debug,
               "Service check cancelled...if this happens frequently, we may need to decrease the ping "
               "timeout or increase the ping interval."));
}

TEST_F(FRXServiceMonitorTests, UnknownResultIsIgnored) {
  monitor_->startMonitoringService(peer_);
  check(static_cast<Result>(7));
  EXPECT_EQ(status()->responseStatus, Status::Unknown);
  EXPECT_TRUE(delegate_->events().empty());
}

TEST_F(FRXServiceMonitorTests, AnswerAfterThePeerLeftIsStillReportedButAFailureIsNot) {
  monitor_->startMonitoringService(peer_);
  for (int i = 0; i < 3; ++i) monitor_->checkServiceForResponse(peer_->serviceId());
  checker_->answer(0, Result::NoResponse);
  monitor_->stopMonitoringService(peer_);
  checker_->answer(1, Result::NoResponse);
  EXPECT_TRUE(delegate_->events().empty());
  checker_->answer(2, Result::Responded);
  EXPECT_EQ(delegate_->events(), Events{"responsive MAC.LOCAL.:16654 gone"});
  EXPECT_TRUE(monitor_->monitoredServices().empty());
}

TEST_F(FRXServiceMonitorTests, LateResultOfAnEarlierStayIsWrittenToTheNewEntry) {
  monitor_->startMonitoringService(peer_);
  monitor_->checkServiceForResponse(peer_->serviceId());
  monitor_->stopMonitoringService(peer_);
  monitor_->startMonitoringService(peer_);
  checker_->answer(0, Result::NoResponse);
  EXPECT_EQ(status()->consecutiveFailedRequests, 1u);
  EXPECT_EQ(status()->responseStatus, Status::Unknown);
}

TEST_F(FRXServiceMonitorTests, ListenerIsCalledOnTheThreadOfTheResult) {
  monitor_->startMonitoringService(peer_);
  monitor_->checkServiceForResponse(peer_->serviceId());
  std::thread::id resultThread;
  std::thread([&] {
    resultThread = std::this_thread::get_id();
    checker_->answer(0, Result::Responded);
  }).join();
  EXPECT_EQ(delegate_->threads(), std::vector<std::thread::id>{resultThread});
}

TEST_F(FRXServiceMonitorTests, StatusIsKeptWithoutAListener) {
  monitor_->startMonitoringService(peer_);
  delegate_.reset();
  EXPECT_EQ(monitor_->delegate(), nullptr);
  check(Result::Responded);
  EXPECT_EQ(status()->responseStatus, Status::Responsive);
  check(Result::NoResponse);
  check(Result::NoResponse);
  EXPECT_EQ(status()->responseStatus, Status::Unresponsive);
}

TEST_F(FRXServiceMonitorTests, GivenCheckerIsHeldWeaklyAndItsAbsenceIsTolerated) {
  monitor_->startMonitoringService(peer_);
  const std::weak_ptr<HeldChecker> weak = checker_;
  checker_.reset();
  EXPECT_TRUE(weak.expired());
  monitor_->checkServiceForResponse(peer_->serviceId());
  EXPECT_EQ(monitor_->serviceChecker(), nullptr);
}

TEST_F(FRXServiceMonitorTests, UnknownIdsAndAbsentServicesAreIgnored) {
  monitor_->checkServiceForResponse("NOBODY.LOCAL.:1");
  monitor_->startMonitoringService(nullptr);
  monitor_->stopMonitoringService(nullptr);
  monitor_->checkAllMonitoredServicesForResponse();
  EXPECT_FALSE(monitor_->isMonitoring());
  EXPECT_EQ(checker_->count(), 0u);
}

TEST_F(FRXServiceMonitorTests, ChecksUnderWayKeepTheMonitorAndItsTimerDoesNot) {
  monitor_->startMonitoringService(peer_);
  monitor_->checkServiceForResponse(peer_->serviceId());
  const std::weak_ptr<FRXServiceMonitor> weak = monitor_;
  monitor_.reset();
  EXPECT_FALSE(weak.expired());
  checker_->answer(0, Result::Responded);
  EXPECT_EQ(delegate_->events().size(), 1u);
  checker_->forget();
  EXPECT_TRUE(weak.expired());
  clock_.advance(10s, loop_);
}

TEST_F(FRXServiceMonitorTests, ResultsFromManyThreadsReportEachChangeOnce) {
  monitor_->startMonitoringService(peer_);
  constexpr std::size_t count = 50;
  for (std::size_t i = 0; i < count; ++i) monitor_->checkServiceForResponse(peer_->serviceId());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < count; ++i) {
    threads.emplace_back([this, i] { checker_->answer(i, Result::Responded); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(delegate_->events().size(), 1u);
}

}  // namespace
}  // namespace ferrox::test

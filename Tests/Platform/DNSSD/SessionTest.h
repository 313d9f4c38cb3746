// What the tests of all discovery sessions share: a discovery thread, and a stack that the test plays.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/DNSSD/BrowseSession.h"
#include "Platform/DNSSD/DiscoveryThread.h"
#include "Platform/DNSSD/Session.h"
#include "Tests/Platform/DNSSD/FakeBackEnd.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::dnssd::test {

inline constexpr Place eth0IPv4{2, false};
inline constexpr Place eth0IPv6{2, true};
inline constexpr Place loIPv4{1, false};

inline LookupReport added(const Place& place, std::string what) {
  return {LookupEvent::Added, place, std::move(what)};
}
inline LookupReport removed(const Place& place, std::string what) {
  return {LookupEvent::Removed, place, std::move(what)};
}

/// Runs the session under test on a real discovery thread over a stack that the test plays.
class SessionTest : public testing::Test {
 protected:
  ~SessionTest() override {
    thread_->finish(
        [this] {
          if (session_) session_->close();
        },
        std::chrono::seconds(5));
  }

  void onThread(const std::function<void()>& action) {
    std::promise<void> done;
    thread_->post([&] {
      action();
      done.set_value();
    });
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
  }
  void begin(std::shared_ptr<Session> session) {
    session_ = std::move(session);
    onThread([this] {
      context_.canLookUp = context_.canPublish = true;
      session_->lookupsStarted();
      session_->publishingStarted();
    });
  }
  void report(const std::string& what, const LookupReport& report) {
    onThread([&] { backEnd_.report(what, report); });
  }
  void loseStack() {
    onThread([this] {
      context_.canLookUp = context_.canPublish = false;
      session_->publishingStopped();
      session_->lookupsStopped();
    });
  }
  void regainStack() { begin(session_); }

  void note(const std::string& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
  }
  std::vector<std::string> events() {
    const std::lock_guard lock(mutex_);
    return events_;
  }
  bool waitForEvents(std::size_t count) {
    return ferrox::test::waitFor([&] { return events().size() >= count; });
  }
  /// Until every batch that has begun was reported: a timer that is set later, for as long, fires later.
  void settle() {
    std::promise<void> reached;
    std::unique_ptr<Pending> marker;
    onThread([&] { marker = thread_->after(BrowseSession::batchTime, [&] { reached.set_value(); }); });
    EXPECT_EQ(reached.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    onThread([&] { marker.reset(); });
  }

  std::shared_ptr<DiscoveryThread> thread_ = DiscoveryThread::make();
  FakeBackEnd backEnd_;
  DiscoveryContext context_{*thread_,
                            backEnd_,
                            {{{.index = 2,
                               .name = "eth0",
                               .up = true,
                               .loopback = false,
                               .multicast = true,
                               .hasIPv4 = true,
                               .hasIPv6 = true,
                               .hasDefaultRoute = true}},
                             {"eth0", "lo"},
                             true}};
  std::shared_ptr<Session> session_;

 private:
  std::mutex mutex_;
  std::vector<std::string> events_;
};

}  // namespace ferrox::dnssd::test

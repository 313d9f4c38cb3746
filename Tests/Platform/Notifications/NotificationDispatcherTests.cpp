#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Notifications/NotificationDispatcher.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

struct NotificationDispatcherTest : testing::Test {
  NotificationDispatcher::TokenRef observe(std::optional<std::string> name, char mark,
                                           const void* sender = nullptr) {
    return dispatcher.addObserver(std::move(name), sender,
                                  [this, mark](const LocalNotification&) { seen += mark; });
  }

  NotificationDispatcher dispatcher;
  std::string seen;
};

TEST_F(NotificationDispatcherTest, DeliversToObserversOfTheNameInTheOrderOfRegistration) {
  const auto a = observe("ready", 'a');
  const auto other = observe("other", 'x');
  const auto b = observe(std::nullopt, 'b');
  const auto c = observe("ready", 'c');
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "abc");
}

TEST_F(NotificationDispatcherTest, HandsOverNameSenderAndUserInfo) {
  LocalNotification received;
  const auto token =
      dispatcher.addObserver("ready", nullptr, [&](const LocalNotification& n) { received = n; });
  dispatcher.post({"ready", this, {{"key", "value"}}});
  EXPECT_EQ(received.name, "ready");
  EXPECT_EQ(received.sender, this);
  EXPECT_EQ(received.userInfo, (FRXDictionary{{"key", "value"}}));
}

TEST_F(NotificationDispatcherTest, HearsOnlyTheSenderItAskedFor) {
  const int mine = 0;
  const int theirs = 0;
  const auto token = observe("ready", 'm', &mine);
  const auto any = observe("ready", 'a');
  dispatcher.post({"ready", &theirs, {}});
  EXPECT_EQ(seen, "a");
  dispatcher.post({"ready", &mine, {}});
  EXPECT_EQ(seen, "ama");
}

TEST_F(NotificationDispatcherTest, EndsWithTheLastReferenceOrWithRemoval) {
  auto dropped = observe("ready", 'd');
  const auto removed = observe("ready", 'r');
  const auto stays = observe("ready", 's');
  dropped.reset();
  dispatcher.removeObserver(removed);
  dispatcher.removeObserver(removed);
  dispatcher.removeObserver(nullptr);
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "s");
}

TEST_F(NotificationDispatcherTest, AnObserverRemovedBeforeItsTurnIsNotCalled) {
  NotificationDispatcher::TokenRef removed;
  NotificationDispatcher::TokenRef dropped;
  const auto first = dispatcher.addObserver("ready", nullptr, [&](const LocalNotification&) {
    dispatcher.removeObserver(removed);
    dropped.reset();
  });
  removed = observe("ready", 'r');
  dropped = observe("ready", 'd');
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "");
}

TEST_F(NotificationDispatcherTest, AnObserverMayRemoveItselfAndAddAnother) {
  NotificationDispatcher::TokenRef self;
  NotificationDispatcher::TokenRef added;
  self = dispatcher.addObserver("ready", nullptr, [&](const LocalNotification&) {
    dispatcher.removeObserver(self);
    added = observe("ready", 'n');
    seen += 'o';
  });
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "o") << "one added while a notification is delivered hears the next one";
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "on");
}

TEST_F(NotificationDispatcherTest, RemovalLetsGoOfWhatTheHandlerHolds) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> captured = held;
  const auto token =
      dispatcher.addObserver("ready", nullptr, [held = std::move(held)](const LocalNotification&) {});
  dispatcher.removeObserver(token);
  EXPECT_TRUE(captured.expired());
}

TEST_F(NotificationDispatcherTest, DeliversNestedNotificationsAtOnce) {
  const auto outer = dispatcher.addObserver("outer", nullptr, [&](const LocalNotification&) {
    seen += '(';
    dispatcher.post({"inner", nullptr, {}});
    seen += ')';
  });
  const auto inner = observe("inner", 'i');
  dispatcher.post({"outer", nullptr, {}});
  EXPECT_EQ(seen, "(i)");
}

TEST_F(NotificationDispatcherTest, AnObserverThatThrowsDoesNotKeepTheOthersFromHearing) {
  const test::LogRecording log;
  const auto bad = dispatcher.addObserver(
      "ready", nullptr, [](const LocalNotification&) { throw std::runtime_error("no ear"); });
  const auto empty = dispatcher.addObserver("ready", nullptr, nullptr);
  const auto good = observe("ready", 'g');
  dispatcher.post({"ready", nullptr, {}});
  EXPECT_EQ(seen, "g");
  EXPECT_TRUE(log->mentions(LogLevel::Error, "no ear"));
}

TEST_F(NotificationDispatcherTest, ATokenMayOutliveTheDispatcher) {
  auto shortLived = std::make_unique<NotificationDispatcher>();
  const auto token = shortLived->addObserver("ready", nullptr, [](const LocalNotification&) {});
  shortLived.reset();
}

TEST_F(NotificationDispatcherTest, TheDefaultCenterIsOne) {
  EXPECT_EQ(&NotificationDispatcher::defaultCenter(), &NotificationDispatcher::defaultCenter());
}

TEST_F(NotificationDispatcherTest, TakesObserversAndPostsFromManyThreads) {
  std::atomic<int> heard{0};
  const auto steady = dispatcher.addObserver("ready", nullptr, [&](const LocalNotification&) { ++heard; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        const auto brief = dispatcher.addObserver(std::nullopt, nullptr, [](const LocalNotification&) {});
        dispatcher.post({"ready", nullptr, {}});
        if (i % 2 == 0) dispatcher.removeObserver(brief);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(heard, 800);
}

}  // namespace
}  // namespace ferrox

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Tests/Classes/Notifications/CenterFixture.h"

namespace ferrox {
namespace {

using test::Ear;
using test::ScopedLocalServices;

/// Observing and local posts.
class FRXNotificationCenterTest : public testing::Test, protected test::CenterFixture {
 protected:
  void observe(const std::optional<std::string>& name, const std::optional<std::string>& filter = {}) {
    center->addObserver(ear, &Ear::hear, name, filter);
  }
  std::size_t heard() const { return ear->heard.size(); }
};

TEST_F(FRXNotificationCenterTest, AnObserverHearsTheNameItAskedForWithItsUserInfo) {
  observe("N");
  center->postLocalNotification("N", {{"k", "v"}}, "f");
  center->postLocalNotification("M", {}, "f");
  ASSERT_EQ(heard(), 1U);
  EXPECT_EQ(ear->heard[0].name, "N");
  EXPECT_EQ(ear->heard[0].userInfo, (FRXDictionary{{"k", "v"}}));
}

TEST_F(FRXNotificationCenterTest, FiltersAreComparedByTheirText) {
  observe("N", std::string("a filter that is too long to be the same object by accident"));
  center->postLocalNotification(
      "N", {}, std::string("a filter that is too long to be the ") + "same object by accident");
  center->postLocalNotification("N", {}, "a filter that is too long to be the same object by acciden");
  center->postLocalNotification("N", {}, "");
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, AnObserverWithoutFilterHearsAllOfThem) {
  observe("N");
  center->postLocalNotification("N", {}, "a");
  center->postLocalNotification("N", {}, "");
  center->postLocalNotification("N", {}, " ");
  center->postLocalNotification("N", {}, std::nullopt);
  EXPECT_EQ(heard(), 4U);
}

TEST_F(FRXNotificationCenterTest, AnObserverWithoutNameHearsAllOfThem) {
  observe(std::nullopt, "f");
  center->postLocalNotification("N", {}, "f");
  center->postLocalNotification("M", {}, "f");
  center->postLocalNotification("M", {}, "g");
  EXPECT_EQ(heard(), 2U);
}

TEST_F(FRXNotificationCenterTest, AnEmptyFilterIsAFilter) {
  observe("N", "");
  center->postLocalNotification("N", {}, "x");
  EXPECT_EQ(heard(), 0U);
  center->postLocalNotification("N", {}, "");
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, ALocalPostWithoutFilterIsUnderThisDevicesId) {
  observe("N", ScopedLocalServices::frxId);
  observe("N", "other");
  center->postLocalNotification("N", {}, std::nullopt);
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, WithoutAServerALocalPostWithoutFilterReachesThoseWithoutOne) {
  LocalServiceDirectory::setServerSource(nullptr);
  observe("N");
  observe("N", "f");
  center->postLocalNotification("N", {}, std::nullopt);
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, EqualTextsHaveOneTokenAndItIsTheSenderOfThePost) {
  const auto token = center->registerNotificationFilter("f");
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(*token, "f");
  for (int i = 0; i < 1000; ++i) center->registerNotificationFilter(std::to_string(i));
  EXPECT_EQ(center->registerNotificationFilter("f"), token);
  EXPECT_NE(center->registerNotificationFilter("g"), token);
  EXPECT_EQ(center->registerNotificationFilter(std::nullopt), nullptr);

  const auto direct = dispatcher.addObserver("N", token, [&](const LocalNotification& n) { ear->hear(n); });
  center->postLocalNotification("N", {}, "f");
  ASSERT_EQ(heard(), 1U);
  EXPECT_EQ(ear->heard[0].sender, token);
}

TEST_F(FRXNotificationCenterTest, APostReachesObserversOfItsTextOnlyEvenIfNobodyRegisteredIt) {
  observe("N", "known");
  observe("N");
  const std::optional<std::string> unknown = "unknown";
  center->postLocalNotification("N", {}, unknown);
  ASSERT_EQ(heard(), 1U);
  EXPECT_NE(ear->heard[0].sender, nullptr);
  EXPECT_NE(ear->heard[0].sender, center->registerNotificationFilter("unknown")) << "posting made no token";
}

TEST_F(FRXNotificationCenterTest, DeliveryIsOverWhenThePostReturns) {
  bool called = false;
  const auto observation = center->addObserver("N", "f", [&](const LocalNotification&) { called = true; });
  center->postLocalNotification("N", {}, "f");
  EXPECT_TRUE(called);
}

TEST_F(FRXNotificationCenterTest, DeliveryIsOnThePostingThread) {
  std::thread::id where;
  const auto observation = center->addObserver(
      "N", std::nullopt, [&](const LocalNotification&) { where = std::this_thread::get_id(); });
  std::thread poster([&] { center->postLocalNotification("N", {}, std::nullopt); });
  const std::thread::id other = poster.get_id();
  poster.join();
  EXPECT_EQ(where, other);
}

TEST_F(FRXNotificationCenterTest, AnObserverIsHeldWeakly) {
  observe("N");
  const std::weak_ptr<Ear> weak = ear;
  ear.reset();
  EXPECT_TRUE(weak.expired());
  center->postLocalNotification("N", {}, "f");
}

TEST_F(FRXNotificationCenterTest, AnObserverThatGoesBeforeItsTurnIsNotCalled) {
  const auto first =
      center->addObserver("N", std::nullopt, [this](const LocalNotification&) { ear.reset(); });
  observe("N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(ear, nullptr);
}

TEST_F(FRXNotificationCenterTest, AnObserverThatDropsItselfStaysUntilItsCallIsOver) {
  struct Dropper {
    std::shared_ptr<Dropper> self;
    std::string text = std::string(100, 'x');
    std::size_t* seen = nullptr;
    void hear(const LocalNotification&) {
      self.reset();
      *seen = text.size();
    }
  };
  std::size_t seen = 0;
  auto dropper = std::make_shared<Dropper>();
  dropper->seen = &seen;
  center->addObserver(dropper, &Dropper::hear, "N");
  dropper->self = dropper;
  dropper.reset();
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(seen, 100U);
}

TEST_F(FRXNotificationCenterTest, NobodyIsNoObserver) {
  center->addObserver(std::shared_ptr<Ear>(), &Ear::hear, "N");
  center->removeObserver(nullptr, "N");
  center->postLocalNotification("N", {}, "f");
}

TEST_F(FRXNotificationCenterTest, TakesOperationsOfABaseAndConstantOnes) {
  struct Listener : Ear {
    mutable int calls = 0;
    void count(const LocalNotification&) const { ++calls; }
  };
  const auto listener = std::make_shared<Listener>();
  center->addObserver(listener, &Listener::hear, "N");
  center->addObserver(listener, &Listener::count, "N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(listener->heard.size(), 1U);
  EXPECT_EQ(listener->calls, 1);
}

TEST_F(FRXNotificationCenterTest, AddedTwiceItIsCalledTwice) {
  observe("N");
  center->addObserver(ear, &Ear::hearToo, "N");
  observe("N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 3U);
}

TEST_F(FRXNotificationCenterTest, RemovalEndsOneNameAndFilter) {
  observe("N", "a");
  observe("N", "b");
  observe("M", "a");
  center->removeObserver(ear, "N", "a");
  center->postLocalNotification("N", {}, "a");
  EXPECT_EQ(heard(), 0U);
  center->postLocalNotification("N", {}, "b");
  center->postLocalNotification("M", {}, "a");
  EXPECT_EQ(heard(), 2U);
}

TEST_F(FRXNotificationCenterTest, RemovalWithoutFilterOrNameStandsForAllOfThem) {
  observe("N", "a");
  observe("N");
  observe("M", "a");
  center->removeObserver(ear, "N");
  center->postLocalNotification("N", {}, "a");
  EXPECT_EQ(heard(), 0U);
  center->postLocalNotification("M", {}, "a");
  EXPECT_EQ(heard(), 1U);
  center->removeObserver(ear);
  center->postLocalNotification("M", {}, "a");
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, RemovalLeavesOtherObserversAndOtherSubscriptions) {
  const auto other = std::make_shared<Ear>();
  center->addObserver(other, &Ear::hear, "N");
  observe("N");
  center->removeObserver(ear, "M");
  center->removeObserver(ear, "N", "never registered");
  center->removeObserver(other, "N");
  center->removeObserver(other, "N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 1U);
  EXPECT_EQ(other->heard.size(), 0U);
}

TEST_F(FRXNotificationCenterTest, OneRemovedBeforeItsTurnIsNotCalled) {
  const auto first = center->addObserver(
      "N", std::nullopt, [this](const LocalNotification&) { center->removeObserver(ear, "N"); });
  observe("N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 0U);
}

TEST_F(FRXNotificationCenterTest, OneAddedDuringDeliveryHearsTheNextPost) {
  const auto first = center->addObserver("N", std::nullopt, [this](const LocalNotification&) {
    if (ear->heard.empty()) observe("N");
  });
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 0U);
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, AnObserverMayPost) {
  const auto first = center->addObserver(
      "N", std::nullopt, [this](const LocalNotification&) { center->postLocalNotification("M", {}, "f"); });
  observe("M", "f");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 1U);
}

TEST_F(FRXNotificationCenterTest, AnObservationEndsWithItsLastReference) {
  int calls = 0;
  auto observation = center->addObserver("N", "f", [&](const LocalNotification&) { ++calls; });
  center->postLocalNotification("N", {}, "f");
  observation.reset();
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(calls, 1);
}

TEST_F(FRXNotificationCenterTest, AnObservationMayOutliveTheCenter) {
  int calls = 0;
  const auto observation = center->addObserver("N", "f", [&](const LocalNotification&) { ++calls; });
  observe("N");
  center.reset();
  dispatcher.post({"N", nullptr, {}});
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(heard(), 0U) << "what was added for an object ends with the center";
}

/// Counts the blocks of memory in use; that of an object held weakly stays until the last holder lets go.
template <typename T>
struct CountingAllocator {
  using value_type = T;
  explicit CountingAllocator(int& blocksInUse) : blocks(&blocksInUse) {}
  template <typename U>
  CountingAllocator(const CountingAllocator<U>& other) : blocks(other.blocks) {}
  T* allocate(std::size_t count) {
    ++*blocks;
    return std::allocator<T>().allocate(count);
  }
  void deallocate(T* memory, std::size_t count) {
    --*blocks;
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const CountingAllocator&) const = default;
  int* blocks;
};

TEST_F(FRXNotificationCenterTest, WhatObserversThatAreGoneLeftIsSweptUp) {
  int blocks = 0;
  int most = 0;
  for (int i = 0; i < 1000; ++i) {
    center->addObserver(std::allocate_shared<Ear>(CountingAllocator<Ear>(blocks)), &Ear::hear, "N");
    most = std::max(most, blocks);
  }
  EXPECT_GT(most, 1);
  EXPECT_LT(most, 100);
  observe("N");
  center->postLocalNotification("N", {}, "f");
  EXPECT_EQ(heard(), 1U);
  center.reset();
  EXPECT_EQ(blocks, 0);
}

TEST_F(FRXNotificationCenterTest, TakesObserversFiltersAndPostsFromManyThreads) {
  std::atomic<int> steadyCalls{0};
  const auto steady = center->addObserver("N", "f", [&](const LocalNotification&) { ++steadyCalls; });
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const auto mine = std::make_shared<Ear>();
        center->addObserver(mine, &Ear::hear, "N" + std::to_string(t), "f" + std::to_string(i));
        center->postLocalNotification("N", {}, "f");
        center->postLocalNotification("N" + std::to_string(t), {}, "f" + std::to_string(i));
        ASSERT_EQ(mine->heard.size(), 1U);
        if (i % 2 == 0) center->removeObserver(mine, "N" + std::to_string(t));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(steadyCalls, 800);
}

TEST(FRXNotificationCenter, TheSharedOneIsOneAndTheSinkOverTheDefaultDispatcher) {
  const auto center = FRXNotificationCenter::sharedCenter();
  EXPECT_EQ(center, FRXNotificationCenter::sharedCenter());
  EXPECT_EQ(NotificationSink::registered(), center);
  int calls = 0;
  const auto observation = NotificationDispatcher::defaultCenter().addObserver(
      "FRXNotificationCenterTests", nullptr, [&](const LocalNotification&) { ++calls; });
  center->postLocalNotification("FRXNotificationCenterTests", {}, "f");
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace ferrox

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/Base/ListenerSlot.h"

namespace ferrox {
namespace {

class FinderListener {
 public:
  virtual ~FinderListener() = default;
  virtual void didFind(const std::string& name) { (void)name; }
  virtual void didLose(const std::string& name) { (void)name; }
  virtual bool wants(int size) const {
    (void)size;
    return true;
  }
};

struct RespondingSelectors {
  bool didFind = false;
  bool didLose = false;
  bool wants = false;

  template <typename Concrete>
  static constexpr RespondingSelectors of() {
    return {.didFind = overridesOperation(&FinderListener::didFind, &Concrete::didFind),
            .didLose = overridesOperation(&FinderListener::didLose, &Concrete::didLose),
            .wants = overridesOperation(&FinderListener::wants, &Concrete::wants)};
  }
};

class Indifferent final : public FinderListener {};

class Finder : public FinderListener {
 public:
  void didFind(const std::string& name) override { found += name; }
  std::string found;
};

class PickyFinder final : public Finder {
 public:
  bool wants(int) const override { return false; }
};

using Slot = ListenerSlot<FinderListener, RespondingSelectors>;

TEST(ListenerSelectors, SeesWhichOperationsAClassOverrides) {
  static_assert(!RespondingSelectors::of<Indifferent>().didFind);
  static_assert(!RespondingSelectors::of<Indifferent>().wants);
  static_assert(RespondingSelectors::of<Finder>().didFind);
  static_assert(!RespondingSelectors::of<Finder>().didLose);
  static_assert(RespondingSelectors::of<PickyFinder>().didFind, "inherited from a class that overrides");
  static_assert(RespondingSelectors::of<PickyFinder>().wants);
  EXPECT_FALSE(overridesOperation(&FinderListener::didLose, &PickyFinder::didLose));
}

TEST(ListenerSlot, CallsOnlyWhatTheListenerImplements) {
  Slot slot;
  const auto listener = std::make_shared<Finder>();
  slot.set(listener);
  EXPECT_TRUE(slot.notify(&RespondingSelectors::didFind, [](FinderListener& l) { l.didFind("a"); }));
  EXPECT_FALSE(slot.notify(&RespondingSelectors::didLose, [](FinderListener&) { FAIL(); }));
  EXPECT_EQ(listener->found, "a");
  EXPECT_TRUE(slot.respondingSelectors().didFind);
  EXPECT_FALSE(slot.respondingSelectors().wants);
}

TEST(ListenerSlot, DoesNotKeepItsListenerAlive) {
  Slot slot;
  auto listener = std::make_shared<PickyFinder>();
  slot.set(listener);
  EXPECT_EQ(slot.listener(), listener);
  listener.reset();
  EXPECT_EQ(slot.listener(), nullptr);
  EXPECT_FALSE(slot.notify(&RespondingSelectors::didFind, [](FinderListener&) { FAIL(); }));
}

TEST(ListenerSlot, CanBeEmptied) {
  Slot slot;
  const auto listener = std::make_shared<Finder>();
  slot.set(listener);
  slot.set(nullptr);
  EXPECT_EQ(slot.listener(), nullptr);
  EXPECT_FALSE(slot.respondingSelectors().didFind);
  slot.set(listener);
  slot.set(std::shared_ptr<Finder>());
  EXPECT_FALSE(slot.respondingSelectors().didFind);
}

TEST(ListenerSlot, MayBeSetDuringACall) {
  Slot slot;
  const auto first = std::make_shared<Finder>();
  const auto second = std::make_shared<Indifferent>();
  slot.set(first);
  slot.notify(&RespondingSelectors::didFind, [&](FinderListener&) { slot.set(second); });
  EXPECT_EQ(slot.listener(), second);
  EXPECT_FALSE(slot.respondingSelectors().didFind);
}

}  // namespace
}  // namespace ferrox

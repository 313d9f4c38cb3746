// Where an object keeps its listener: weakly, together with what the listener implements.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "Platform/Base/ListenerSelectors.h"
#include "Platform/Base/Mutex.h"

namespace ferrox {

/// Holds a listener weakly and calls only the operations it implements. `Selectors` is an aggregate with one
/// flag (a bool or an integer) an operation and a static template that fills it:
///
///     struct RespondingSelectors {
///       bool didFind = false;
///       template <typename Concrete>
///       static constexpr RespondingSelectors of() {
///         return {.didFind = overridesOperation(&FinderListener::didFind, &Concrete::didFind)};
///       }
///     };
///
/// Thread: any
template <typename Listener, typename Selectors>
class ListenerSlot {
 public:
  /// `Concrete` has to be the listener's own class, or its operations are not seen. An empty pointer leaves
  /// the slot without a listener.
  template <typename Concrete>
  void set(const std::shared_ptr<Concrete>& listener) {
    static_assert(std::is_base_of_v<Listener, Concrete>);
    static_assert(!std::is_same_v<Listener, Concrete>,
                  "set it with the class that implements the operations");
    const MutexLock lock(mutex_);
    listener_ = listener;
    selectors_ = listener ? Selectors::template of<Concrete>() : Selectors{};
  }
  void set(std::nullptr_t) {
    const MutexLock lock(mutex_);
    listener_.reset();
    selectors_ = Selectors{};
  }

  std::shared_ptr<Listener> listener() const {
    const MutexLock lock(mutex_);
    return listener_.lock();
  }
  Selectors respondingSelectors() const {
    const MutexLock lock(mutex_);
    return selectors_;
  }

  /// Runs `call(listener)` when the listener is alive and implements the operation named by `selector`;
  /// returns whether it did. No lock is held during the call.
  template <typename Flag, typename Call>
  bool notify(Flag Selectors::*selector, Call&& call) const {
    const std::shared_ptr<Listener> target = listenerFor(selector);
    if (target == nullptr) return false;
    std::forward<Call>(call)(*target);
    return true;
  }

 private:
  template <typename Flag>
  std::shared_ptr<Listener> listenerFor(Flag Selectors::*selector) const {
    const MutexLock lock(mutex_);
    return selectors_.*selector != Flag{} ? listener_.lock() : nullptr;
  }

  mutable Mutex mutex_;
  std::weak_ptr<Listener> listener_ FRX_GUARDED_BY(mutex_);
  Selectors selectors_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

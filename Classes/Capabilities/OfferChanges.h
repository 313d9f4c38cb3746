// Tells whether anything that is offered has changed.
#pragma once

#include <atomic>
#include <cstdint>

namespace ferrox {

/// Counts the changes of all offers in the process, for whoever keeps something that was made of them. What
/// changes an offer, or a table of them, notes it when the change can be read and before it returns.
/// Thread: any
class OfferChanges {
 public:
  static void note() { changes.fetch_add(1); }
  static std::uint64_t count() { return changes.load(); }

 private:
  static inline std::atomic<std::uint64_t> changes{0};
};

}  // namespace ferrox

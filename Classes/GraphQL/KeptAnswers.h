// The answers given last, for peers that all ask the same.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "Classes/Capabilities/FRXCapability.h"

namespace ferrox {

/// What an answer depends on beside its query: which capabilities there are, and what they offer.
class OffersState {
 public:
  /// Taken before the offers are read: a change meanwhile makes what was read old.
  static OffersState current();

  bool operator==(const OffersState& other) const;

 private:
  std::uint64_t changes_ = 0;
  // Held weakly, so that an answer that is kept keeps no capability alive. A capability that takes the place
  // of a destroyed one is still told apart from it.
  std::map<std::string, std::weak_ptr<FRXCapability>, std::less<>> capabilities_;
};

/// When a newcomer appears, everybody asks it for everything it has, and it everybody. An answer is the same
/// until an offer changes, so the last few are kept. Queries that nobody repeats push the others out, which
/// costs their speed and nothing else.
/// Thread: any
class KeptAnswers {
 public:
  using Answer = std::shared_ptr<const std::string>;

  static constexpr std::size_t capacity = 4;
  /// Queries and answers larger than this are not kept.
  static constexpr std::size_t maxSize = std::size_t{256} << 10;

  /// The answer to that very text, if it was given in that state; else nothing.
  Answer find(std::string_view query, const OffersState& state) const;
  /// In the place of the oldest, or of an older answer to the same query.
  void keep(std::string_view query, const OffersState& state, const std::string& answer);

 private:
  struct Kept {
    std::string query;
    OffersState state;
    Answer answer;
  };

  mutable std::mutex mutex_;
  std::array<Kept, capacity> kept_;
  std::size_t oldest_ = 0;
};

}  // namespace ferrox

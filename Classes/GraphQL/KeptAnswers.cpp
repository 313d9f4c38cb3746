#include "Classes/GraphQL/KeptAnswers.h"

#include <algorithm>

#include "Classes/Capabilities/OfferChanges.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"

namespace ferrox {
namespace {

bool isSame(const std::weak_ptr<FRXCapability>& a, const std::weak_ptr<FRXCapability>& b) {
  return !a.owner_before(b) && !b.owner_before(a);
}

}  // namespace

OffersState OffersState::current() {
  OffersState state;
  state.changes_ = OfferChanges::count();
  if (const auto delegate = RoutingHTTPConnection::capabilitiesDelegate()) {
    for (const auto& [name, capability] : delegate->capabilities()) {
      state.capabilities_.emplace_hint(state.capabilities_.end(), name, capability);
    }
  }
  return state;
}

bool OffersState::operator==(const OffersState& other) const {
  return changes_ == other.changes_ &&
         std::equal(capabilities_.begin(), capabilities_.end(), other.capabilities_.begin(),
                    other.capabilities_.end(), [](const auto& a, const auto& b) {
                      return a.first == b.first && isSame(a.second, b.second);
                    });
}

KeptAnswers::Answer KeptAnswers::find(std::string_view query, const OffersState& state) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(kept_.begin(), kept_.end(), [&](const Kept& kept) {
    return kept.answer && kept.query == query && kept.state == state;
  });
  return found == kept_.end() ? nullptr : found->answer;
}

void KeptAnswers::keep(std::string_view query, const OffersState& state, const std::string& answer) {
  if (query.size() > maxSize || answer.size() > maxSize) return;
  Kept made{std::string(query), state, std::make_shared<const std::string>(answer)};
  const std::lock_guard lock(mutex_);
  auto place = std::find_if(kept_.begin(), kept_.end(),
                            [&](const Kept& kept) { return kept.answer && kept.query == query; });
  if (place == kept_.end()) {
    place = kept_.begin() + static_cast<std::ptrdiff_t>(oldest_);
    oldest_ = (oldest_ + 1) % capacity;
  }
  *place = std::move(made);
}

}  // namespace ferrox

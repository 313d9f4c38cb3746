// What the capabilities have in common: a table of offers by key, readable from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

/// `Offer` has `key()`, `port()`, `setPort()` and `jsonSerializableObject()`.
/// Thread: any
template <typename Offer>
class OfferTable {
 public:
  using Offers = std::map<std::string, std::shared_ptr<Offer>, std::less<>>;

  /// False, changing nothing, when the offer is incomplete or its key is taken. A port of 0 becomes the
  /// server's.
  bool add(const std::shared_ptr<Offer>& offer) {
    if (!offer || !offer->jsonSerializableObject()) return false;
    auto key = offer->key();
    if (!key) return false;
    const std::uint16_t serverPort = LocalServiceDirectory::serverPort();
    const std::lock_guard lock(mutex_);
    const bool added = offers_.emplace(std::move(*key), offer).second;
    if (added && offer->port() == 0) offer->setPort(serverPort);
    return added;
  }

  bool remove(std::string_view key) {
    const std::lock_guard lock(mutex_);
    const auto found = offers_.find(key);
    if (found == offers_.end()) return false;
    offers_.erase(found);
    return true;
  }

  std::shared_ptr<Offer> find(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    const auto found = offers_.find(key);
    return found == offers_.end() ? nullptr : found->second;
  }

  Offers snapshot() const {
    const std::lock_guard lock(mutex_);
    return offers_;
  }

  /// One object for each offer. One that was made incomplete after it was added is left out.
  FRXArray jsonArray() const {
    FRXArray array;
    for (const auto& [key, offer] : snapshot()) {
      if (auto object = offer->jsonSerializableObject()) array.emplace_back(std::move(*object));
    }
    return array;
  }

 private:
  mutable std::mutex mutex_;
  Offers offers_;
};

}  // namespace ferrox

// What the capabilities have in common: a table of offers by key, readable from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/Capabilities/OfferChanges.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Platform/Base/FRXValue.h"
#include "Platform/Log/Log.h"

namespace ferrox {

/// `Offer` has `key()`, `port()`, `setPort()`, `description()` and `jsonSerializableObject()`; the latter two
/// give nothing while the offer is incomplete.
/// Thread: any
template <typename Offer>
class OfferTable {
 public:
  using Offers = std::map<std::string, std::shared_ptr<Offer>, std::less<>>;

  /// False, changing nothing, when the offer is incomplete, which is logged, or its key is taken. A port of 0
  /// becomes the server's.
  bool add(const std::shared_ptr<Offer>& offer) {
    auto key = offer ? offer->key() : std::nullopt;
    if (!key || !offer->description()) {
      FRX_LOG_WARN("Refused to offer " + Log::escaped(key.value_or("something without an id")) +
                   ": a required value is missing or no UTF-8");
      return false;
    }
    const std::uint16_t serverPort = LocalServiceDirectory::serverPort();
    const std::lock_guard lock(mutex_);
    const bool added = offers_.emplace(std::move(*key), offer).second;
    if (added && offer->port() == 0) offer->setPort(serverPort);
    if (added) OfferChanges::note();
    return added;
  }

  bool remove(std::string_view key) {
    const std::lock_guard lock(mutex_);
    const auto found = offers_.find(key);
    if (found == offers_.end()) return false;
    offers_.erase(found);
    OfferChanges::note();
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

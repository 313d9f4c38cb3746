#include "Platform/DNSSD/Sightings.h"

#include <algorithm>

namespace ferrox::dnssd {

void Sightings::add(const Place& place, const std::string& what) {
  const auto [entry, isNew] = entries_.try_emplace({what, place});
  // An entry confirmed after a new beginning keeps its age: the order among old and new data stays true.
  if (isNew || !entry->second.stale) entry->second.order = nextOrder_++;
  entry->second.stale = false;
}

void Sightings::remove(const Place& place, const std::string& what) { entries_.erase({what, place}); }

void Sightings::markAllStale() {
  for (auto& [key, entry] : entries_) entry.stale = true;
}

void Sightings::dropStale() {
  std::erase_if(entries_, [](const auto& item) { return item.second.stale; });
}

void Sightings::clear() { entries_.clear(); }

bool Sightings::isVisible(const std::string& what, const InterfaceSelection& interfaces) const {
  return !placesOf(what, interfaces).empty();
}

std::set<std::string> Sightings::visible(const InterfaceSelection& interfaces) const {
  std::set<std::string> result;
  for (const auto& [key, entry] : entries_) {
    if (interfaces.uses(key.second.interfaceIndex)) result.insert(key.first);
  }
  return result;
}

std::vector<Sighting> Sightings::inOrder(const InterfaceSelection& interfaces) const {
  std::vector<std::pair<std::uint64_t, Sighting>> ordered;
  for (const auto& [key, entry] : entries_) {
    if (interfaces.uses(key.second.interfaceIndex)) {
      ordered.push_back({entry.order, {key.second, key.first}});
    }
  }
  std::sort(ordered.begin(), ordered.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Sighting> result;
  result.reserve(ordered.size());
  for (auto& item : ordered) result.push_back(std::move(item.second));
  return result;
}

std::vector<Place> Sightings::placesOf(const std::string& what, const InterfaceSelection& interfaces) const {
  std::vector<Place> places;
  for (auto entry = entries_.lower_bound({what, Place{}}); entry != entries_.end(); ++entry) {
    const auto& [seen, place] = entry->first;
    if (seen != what) break;
    if (interfaces.uses(place.interfaceIndex)) places.push_back(place);
  }
  return places;
}

}  // namespace ferrox::dnssd

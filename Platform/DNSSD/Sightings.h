// What one look-up currently sees, place by place.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DNSSD/BackEnd.h"

namespace ferrox::dnssd {

struct Sighting {
  Place place;
  std::string what;
};

/// A thing is seen as long as one place sees it. Places on interfaces that are not in use are remembered,
/// because the choice of interfaces may change, but do not count. Stale entries are those of a look-up that
/// had to begin anew; they count until the new one has had its chance to confirm them.
class Sightings {
 public:
  void add(const Place& place, const std::string& what);
  void remove(const Place& place, const std::string& what);
  void markAllStale();
  void dropStale();
  void clear();

  bool isVisible(const std::string& what, const InterfaceSelection& interfaces) const;
  /// Everything visible, without repetition.
  std::set<std::string> visible(const InterfaceSelection& interfaces) const;
  /// Every visible sighting, the one that was added last at the end.
  std::vector<Sighting> inOrder(const InterfaceSelection& interfaces) const;
  std::vector<Place> placesOf(const std::string& what, const InterfaceSelection& interfaces) const;

 private:
  struct Entry {
    std::uint64_t order = 0;
    bool stale = false;
  };
  std::map<std::pair<std::string, Place>, Entry> entries_;
  std::uint64_t nextOrder_ = 1;
};

}  // namespace ferrox::dnssd

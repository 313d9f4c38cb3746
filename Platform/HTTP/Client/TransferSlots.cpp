#include "Platform/HTTP/Client/TransferSlots.h"

#include <algorithm>

namespace ferrox {

std::string TransferSlots::keyOf(const HTTPClientTarget& target) {
  return target.host + " " + std::to_string(target.port);
}

bool TransferSlots::acquire(const HTTPClientTarget& target, Id id) {
  Host& host = hosts_[keyOf(target)];
  if (host.running < perHost_) {
    ++host.running;
    return true;
  }
  host.waiting.push_back(id);
  return false;
}

std::optional<TransferSlots::Id> TransferSlots::release(const HTTPClientTarget& target) {
  const auto found = hosts_.find(keyOf(target));
  if (found == hosts_.end()) return std::nullopt;
  Host& host = found->second;
  if (!host.waiting.empty()) {
    const Id next = host.waiting.front();
    host.waiting.pop_front();
    return next;
  }
  if (--host.running == 0) hosts_.erase(found);
  return std::nullopt;
}

bool TransferSlots::removeWaiting(const HTTPClientTarget& target, Id id) {
  const auto found = hosts_.find(keyOf(target));
  if (found == hosts_.end()) return false;
  auto& waiting = found->second.waiting;
  const auto position = std::find(waiting.begin(), waiting.end(), id);
  if (position == waiting.end()) return false;
  waiting.erase(position);
  return true;
}

}  // namespace ferrox

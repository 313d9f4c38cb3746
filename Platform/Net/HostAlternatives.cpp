#include "Platform/Net/HostAlternatives.h"

#include "Platform/Host/Text.h"
#include "Platform/Net/HostName.h"

namespace ferrox {
namespace {

std::string keyOf(const std::string& hostName) { return text::upperCased(withoutTrailingDot(hostName)); }

}  // namespace

void HostAlternatives::set(const std::string& hostName, const std::string& alternative) {
  std::string key = keyOf(hostName);
  const MutexLock lock(mutex_);
  if (entries_.insert_or_assign(key, alternative).second) byAge_.push_back(std::move(key));
  if (byAge_.size() <= capacity) return;
  entries_.erase(byAge_.front());
  byAge_.pop_front();
}

std::optional<std::string> HostAlternatives::of(const std::string& hostName) const {
  const std::string key = keyOf(hostName);
  const MutexLock lock(mutex_);
  const auto found = entries_.find(key);
  return found == entries_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace ferrox

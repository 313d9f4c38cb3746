// Other ways to hosts whose .local names multicast does not carry to here.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "Platform/Base/Mutex.h"

namespace ferrox {

/// Names are compared without regard to case and to a trailing dot; the oldest entry goes when it is full.
/// Thread: any
class HostAlternatives {
 public:
  static constexpr std::size_t capacity = 1024;

  void set(const std::string& hostName, const std::string& alternative);
  std::optional<std::string> of(const std::string& hostName) const;

 private:
  mutable Mutex mutex_;
  std::map<std::string, std::string> entries_ FRX_GUARDED_BY(mutex_);
  std::deque<std::string> byAge_ FRX_GUARDED_BY(mutex_);
};

}  // namespace ferrox

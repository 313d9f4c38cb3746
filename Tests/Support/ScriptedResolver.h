// A resolver that knows what a test tells it, and may never answer.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Net/HostNameResolver.h"

namespace ferrox::test {

/// Literals answer for themselves; a name that is not known is not found. Answers come on a thread of their
/// own. Thread: any
class ScriptedResolver : public HostNameResolver {
 public:
  ~ScriptedResolver() override {
    for (auto& thread : threads_) thread.join();
  }

  void setAddresses(const std::string& name, const std::vector<std::string>& addresses) {
    const std::lock_guard lock(mutex_);
    addresses_[name] = addresses;
  }
  /// Look-ups of this name get no answer at all, not even at their time-out.
  void setSilent(const std::string& name) {
    const std::lock_guard lock(mutex_);
    silent_ = name;
  }
  std::size_t lookupCount() const {
    const std::lock_guard lock(mutex_);
    return lookupCount_;
  }

  void resolve(const std::string& hostName, std::uint16_t port, std::chrono::milliseconds,
               Completion completion) override {
    const std::lock_guard lock(mutex_);
    ++lookupCount_;
    if (silent_ == hostName) return;
    std::vector<SocketAddress> found;
    if (const auto literal = SocketAddress::fromText(hostName, port)) found.push_back(*literal);
    for (const auto& address : addresses_[hostName]) found.push_back(*SocketAddress::fromText(address, port));
    threads_.emplace_back([found, completion = std::move(completion)] {
      if (!found.empty()) return completion(found, std::nullopt);
      completion({}, FRXError{HostNameResolverErrorDomain, HostNameResolverErrorNotFound, "not found"});
    });
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::vector<std::string>> addresses_;
  std::string silent_;
  std::size_t lookupCount_ = 0;
  std::vector<std::thread> threads_;
};

}  // namespace ferrox::test

#include "Platform/Net/HostNameResolver.h"

#include <netdb.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "Platform/Base/Mutex.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/Log/Log.h"
#include "Platform/Net/AddressOrder.h"
#include "Platform/Net/HostAlternatives.h"
#include "Platform/Net/HostName.h"
#include "Platform/Net/IOThread.h"
#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {
namespace {

using Addresses = std::vector<SocketAddress>;

// One question and its answer, whichever of look-up and deadline is first.
class Lookup {
 public:
  Lookup(std::string name, std::uint16_t port, HostNameResolver::Completion completion)
      : name_(std::move(name)), port_(port), completion_(std::move(completion)) {}

  const std::string& name() const { return name_; }

  bool isDone() const {
    const MutexLock lock(mutex_);
    return !completion_;
  }

  void succeed(Addresses addresses) {
    if (addresses.empty()) return fail(HostNameResolverErrorNotFound, "No address found for host " + name_);
    for (auto& address : addresses) address.setPort(port_);
    complete(interleavedByFamily(std::move(addresses)), std::nullopt);
  }

  void fail(int code, std::string description) {
    complete({}, FRXError{HostNameResolverErrorDomain, code, std::move(description)});
  }

 private:
  void complete(Addresses addresses, std::optional<FRXError> error) {
    HostNameResolver::Completion completion;
    {
      const MutexLock lock(mutex_);
      completion = std::exchange(completion_, nullptr);
    }
    if (!completion) return;
    try {
      completion(std::move(addresses), std::move(error));
    } catch (const std::exception& exception) {
      FRX_LOG_ERROR(std::string("The completion of a host name look-up failed: ") + exception.what());
    }
  }

  const std::string name_;
  const std::uint16_t port_;
  mutable Mutex mutex_;
  HostNameResolver::Completion completion_ FRX_GUARDED_BY(mutex_);
};

// A look-up of the system cannot be called off and may take half a minute, so it has threads of its own that
// nobody ever waits for.
BackgroundQueue& systemLookupQueue() {
  static BackgroundQueue& queue = *BackgroundQueue::makePool(4).release();
  return queue;
}

/// A host that multicast reaches answers far sooner; one that it does not reach must not wait for longer, for
/// a reachability check has a second in all.
constexpr std::chrono::milliseconds patienceWithAlternative{250};

void askSystem(Lookup& lookup, const std::string& name) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int code = ::getaddrinfo(name.c_str(), nullptr, &hints, &found); code != 0) {
    return lookup.fail(HostNameResolverErrorNotFound,
                       "No address found for host " + name + ": " + ::gai_strerror(code));
  }
  Addresses addresses;
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    addresses.push_back(SocketAddress::fromNative(entry->ai_addr, entry->ai_addrlen));
  }
  ::freeaddrinfo(found);
  lookup.succeed(std::move(addresses));
}

void startDeadline(const std::shared_ptr<Lookup>& lookup, std::chrono::milliseconds timeout) {
  IOThread::shared().post([lookup, timeout] {
    IOThread::shared().startTimer(timeout, [lookup] {
      lookup->fail(HostNameResolverErrorTimedOut, "Looking up host " + lookup->name() + " timed out");
    });
  });
}

class DiscoveryAndSystemResolver final : public HostNameResolver {
 public:
  explicit DiscoveryAndSystemResolver(DNSSD& discovery) : discovery_(discovery) {}

  void resolve(const std::string& hostName, std::uint16_t port, std::chrono::milliseconds timeout,
               Completion completion) override {
    const auto lookup = std::make_shared<Lookup>(hostName, port, std::move(completion));
    if (!isUsableHostName(hostName)) {
      return IOThread::shared().post(
          [lookup] { lookup->fail(HostNameResolverErrorUnusableName, "Not a usable host name"); });
    }
    if (const auto literal = SocketAddress::fromText(withoutTrailingDot(hostName), port)) {
      return IOThread::shared().post([lookup, address = *literal] { lookup->succeed({address}); });
    }
    startDeadline(lookup, timeout);
    if (isMulticastHostName(hostName)) return askDiscovery(lookup, timeout);
    systemLookupQueue().post([lookup] {
      if (!lookup->isDone()) askSystem(*lookup, lookup->name());
    });
  }

  void setAlternative(const std::string& hostName, const std::string& alternative) override {
    if (isMulticastHostName(hostName) && isUsableHostName(alternative) && !isMulticastHostName(alternative)) {
      alternatives_.set(hostName, alternative);
    }
  }

 private:
  void askDiscovery(const std::shared_ptr<Lookup>& lookup, std::chrono::milliseconds timeout) {
    const auto alternative = alternatives_.of(lookup->name());
    const auto patience = alternative ? std::min(timeout, patienceWithAlternative) : timeout;
    discovery_.resolveHostName(lookup->name(), patience, [lookup, alternative](Addresses addresses) {
      if (addresses.empty() && alternative) return askAlternative(lookup, *alternative);
      lookup->succeed(std::move(addresses));
    });
  }

  static void askAlternative(const std::shared_ptr<Lookup>& lookup, const std::string& alternative) {
    if (const auto literal = SocketAddress::fromText(withoutTrailingDot(alternative), 0)) {
      return lookup->succeed({*literal});
    }
    systemLookupQueue().post([lookup, alternative] {
      if (!lookup->isDone()) askSystem(*lookup, alternative);
    });
  }

  DNSSD& discovery_;
  HostAlternatives alternatives_;
};

}  // namespace

std::unique_ptr<HostNameResolver> HostNameResolver::make(DNSSD& discovery) {
  return std::make_unique<DiscoveryAndSystemResolver>(discovery);
}

}  // namespace ferrox

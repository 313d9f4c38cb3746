#include "Platform/HTTP/Server/ConnectionCounts.h"

#include <netinet/in.h>

#include <mutex>
#include <unordered_map>
#include <utility>

#include "Platform/HTTP/Server/ServerCounters.h"

namespace ferrox {

struct ConnectionCounts::State {
  std::mutex mutex;
  std::size_t totalLimit = 0;
  std::size_t addressLimit = 0;
  std::size_t total = 0;
  std::unordered_map<std::string, std::size_t> byAddress;
  std::shared_ptr<ServerCounters> counters;
};

class ConnectionCounts::Slot {
 public:
  Slot(std::shared_ptr<State> state, std::string address)
      : state_(std::move(state)), address_(std::move(address)) {}
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;
  ~Slot() {
    state_->counters->connectionsEnded.add();
    std::lock_guard lock(state_->mutex);
    --state_->total;
    const auto entry = state_->byAddress.find(address_);
    if (--entry->second == 0) state_->byAddress.erase(entry);
  }

 private:
  std::shared_ptr<State> state_;
  std::string address_;
};

namespace {

std::string addressBytes(const sockaddr_storage& peer) {
  if (peer.ss_family == AF_INET6) {
    const auto& address = reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr;
    return std::string(reinterpret_cast<const char*>(&address), sizeof address);
  }
  const auto& address = reinterpret_cast<const sockaddr_in&>(peer).sin_addr;
  return std::string(reinterpret_cast<const char*>(&address), sizeof address);
}

}  // namespace

ConnectionCounts::ConnectionCounts(std::size_t total, std::size_t perAddress,
                                   std::shared_ptr<ServerCounters> counters)
    : state_(std::make_shared<State>()) {
  state_->totalLimit = total;
  state_->addressLimit = perAddress;
  state_->counters = std::move(counters);
}

ConnectionCounts::~ConnectionCounts() = default;

std::shared_ptr<ConnectionCounts::Slot> ConnectionCounts::admit(const sockaddr_storage& peer) {
  std::string address = addressBytes(peer);
  std::lock_guard lock(state_->mutex);
  if (state_->total >= state_->totalLimit) return nullptr;
  std::size_t& count = state_->byAddress[address];
  if (count >= state_->addressLimit) {
    if (count == 0) state_->byAddress.erase(address);
    return nullptr;
  }
  ++count;
  ++state_->total;
  state_->counters->connectionsAccepted.add();
  return std::make_shared<Slot>(state_, std::move(address));
}

}  // namespace ferrox

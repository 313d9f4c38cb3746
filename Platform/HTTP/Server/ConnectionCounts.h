// How many connections there are, in all and from each remote address.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <memory>
#include <string>

namespace ferrox {

struct ServerCounters;

/// Thread: any
class ConnectionCounts {
 public:
  /// One admitted connection; given back when destroyed.
  class Slot;

  ConnectionCounts(std::size_t total, std::size_t perAddress, std::shared_ptr<ServerCounters> counters);
  ~ConnectionCounts();

  /// Nothing when either limit is reached.
  std::shared_ptr<Slot> admit(const sockaddr_storage& peer);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace ferrox

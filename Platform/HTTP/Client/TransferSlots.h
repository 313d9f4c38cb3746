// Lets only so many transfers to one host run at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include "Platform/HTTP/Client/HTTPClientTarget.h"

namespace ferrox {

/// Thread: the transfer thread
class TransferSlots {
 public:
  using Id = std::uint64_t;

  explicit TransferSlots(std::size_t perHost) : perHost_(perHost) {}

  /// True when the transfer may begin; else it is put in line.
  bool acquire(const HTTPClientTarget& target, Id id);
  /// Gives a slot back; the transfer that takes it over, if one waits.
  std::optional<Id> release(const HTTPClientTarget& target);
  /// Takes a transfer out of the line; false when it does not wait.
  bool removeWaiting(const HTTPClientTarget& target, Id id);

 private:
  struct Host {
    std::size_t running = 0;
    std::deque<Id> waiting;
  };
  static std::string keyOf(const HTTPClientTarget& target);

  const std::size_t perHost_;
  std::map<std::string, Host> hosts_;
};

}  // namespace ferrox

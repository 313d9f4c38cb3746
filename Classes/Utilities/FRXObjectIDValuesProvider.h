// What object identifiers are made of beside the time: machine, process, counter.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

/// Thread: any
class FRX_EXPORT FRXObjectIDValuesProvider {
 public:
  /// This machine's serial number, or its computer name when it tells none; the low 16 bits of the process
  /// id; a counter that starts at a random value from 0 to 2147483646.
  FRXObjectIDValuesProvider();
  /// Given values, for identifiers that a test can foretell.
  FRXObjectIDValuesProvider(std::string machineID, std::uint16_t pid, std::uint32_t counter);

  /// The serial number of the hardware; nothing when the machine tells none or only to root.
  static std::optional<std::string> getSystemSerial();

  const std::string& machineID() const { return machineID_; }
  std::uint16_t processID() const { return processID_; }
  /// The counter's value, which advances by one in the same atomic step: no two callers get the same, until
  /// all 2^32 values are used up.
  std::uint32_t counter() { return counter_.fetch_add(1, std::memory_order_relaxed); }

 private:
  const std::string machineID_;
  const std::uint16_t processID_;
  std::atomic<std::uint32_t> counter_;
};

}  // namespace ferrox

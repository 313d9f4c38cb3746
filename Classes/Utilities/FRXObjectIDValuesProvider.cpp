#include "Classes/Utilities/FRXObjectIDValuesProvider.h"

#include <unistd.h>

#include <random>
#include <utility>

#include "Platform/Host/HostIdentity.h"

namespace ferrox {
namespace {

constexpr std::uint32_t lastRandomStart = 0x7ffffffe;

std::string machineName() {
  return FRXObjectIDValuesProvider::getSystemSerial().value_or(HostIdentity::current()->computerName());
}

std::uint32_t randomStart() {
  std::random_device source;
  return std::uniform_int_distribution<std::uint32_t>(0, lastRandomStart)(source);
}

}  // namespace

FRXObjectIDValuesProvider::FRXObjectIDValuesProvider()
    : FRXObjectIDValuesProvider(machineName(), static_cast<std::uint16_t>(::getpid()), randomStart()) {}

FRXObjectIDValuesProvider::FRXObjectIDValuesProvider(std::string machineID, std::uint16_t pid,
                                                     std::uint32_t counter)
    : machineID_(std::move(machineID)), processID_(pid), counter_(counter) {}

std::optional<std::string> FRXObjectIDValuesProvider::getSystemSerial() {
  return HostIdentity::current()->serialNumber();
}

}  // namespace ferrox

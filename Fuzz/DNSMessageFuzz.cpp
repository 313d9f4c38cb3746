// Packets from port 5353 and record data as the stack hands it on. What was read must survive writing.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/Reconfirmation.h"
#include "Platform/DNSSD/ServiceSession.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferrox::dnssd;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  (void)confirmsInstance(input, {"PEER", "_ferrox", "_tcp", "local"});
  (void)locationFromSRV(std::string(input));
  (void)readPTRData(input);
  const auto message = readDNSMessage(input);
  if (!message) return 0;
  const auto written = writeDNSMessage(*message);
  if (!written) return 0;  // compression had it fit; expanded it does not
  const auto again = readDNSMessage(*written);
  if (!again || again->records.size() != message->records.size()) std::abort();
  return 0;
}

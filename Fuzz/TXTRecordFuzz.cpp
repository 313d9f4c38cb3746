// TXT record data as any host on the network may announce it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Classes/Discovery/FRXBrowser.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/Host/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferrox;
  const std::string_view rdata(reinterpret_cast<const char*>(data), size);
  const auto raw = decodeTXTRecord(rdata);
  const TXTDictionary values = FRXBrowser::parseTxtRecordValues(rdata);
  for (const auto& [key, value] : raw) {
    if (key.empty() || key.find('=') != std::string::npos) std::abort();
    if (values.contains(key) != text::isValidUtf8(value)) std::abort();
  }
  for (const auto& [key, value] : values) {
    const auto found = raw.find(key);
    if (found == raw.end() || found->second != value) std::abort();
  }
  // What can be written is read back as it was.
  if (const auto encoded = encodeTXTRecord(raw); encoded && decodeTXTRecord(*encoded) != raw) std::abort();
  return 0;
}

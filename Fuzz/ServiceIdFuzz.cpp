// Service ids as peers publish them, the names they are made of, and the coding of path components.
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Classes/Utilities/LocalServiceDirectory.h"
#include "Fuzz/FuzzSupport.h"
#include "Platform/Host/Text.h"

namespace {

using ferrox::FRXServer;
using ferrox::FRXUtilities;

void parse(const std::string& id) {
  const auto device = FRXUtilities::deviceIdFromServiceId(id);
  const auto name = FRXUtilities::localizedNameFromServiceId(id);
  FUZZ_REQUIRE(device.has_value() == !id.empty());
  FUZZ_REQUIRE(name.has_value() == !id.empty());
  if (!device || !name) return;
  FUZZ_REQUIRE(id.starts_with(*device) && device->find('-') == std::string::npos);
  FUZZ_REQUIRE(id.ends_with(*name) && name->find('/') == std::string::npos);
  const bool isLocal = FRXUtilities::isLocalDeviceService(id);
  FUZZ_REQUIRE(isLocal == ferrox::text::equalsIgnoringCase(*device, "0123ABCD"));
}

void make(const std::string& hostName) {
  const std::string device = FRXServer::formatDeviceNameString(hostName);
  FUZZ_REQUIRE(ferrox::text::isValidUtf8(device));
  FUZZ_REQUIRE(device.find_first_of("-/\n\r") == std::string::npos);
  FUZZ_REQUIRE(ferrox::text::characterCount(FRXServer::createServiceNameWithHostname(hostName)) <= 62);
}

void codePathComponent(const std::string& text) {
  const auto encoded = FRXUtilities::urlEncodePathComponent(text);
  FUZZ_REQUIRE(encoded && encoded->find_first_of("/?#% \r\n") == encoded->find('%'));
  const auto decoded = FRXUtilities::urlDecodePathComponent(encoded);
  FUZZ_REQUIRE(decoded.has_value() == ferrox::text::isValidUtf8(text));
  FUZZ_REQUIRE(!decoded || *decoded == text);
  const auto raw = FRXUtilities::urlDecodePathComponent(text);
  FUZZ_REQUIRE(!raw || ferrox::text::isValidUtf8(*raw));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  ferrox::LocalServiceDirectory::setServerSource([] {
    return ferrox::LocalServiceDirectory::LocalServer{"0123ABCD-V/NAME", 16654};
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(ferrox::fuzz::asText(data, size));
  parse(text);
  make(text);
  codePathComponent(text);
  const auto version = FRXUtilities::decodeServiceVersion(text);
  FUZZ_REQUIRE(!version || ferrox::text::isValidUtf8(*version));
  return 0;
}

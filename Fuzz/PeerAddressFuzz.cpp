// Address texts of a person or a program: whatever is accepted makes a URL with exactly one host and port.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Classes/Discovery/FRXPeerAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ferrox;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto address = FRXPeerAddress::fromText(text);
  if (!address) return 0;
  if (address->port() == 0 || FRXPeerAddress::make(address->host(), address->port()) != address) std::abort();
  const std::string url = address->url("/service");
  const std::string end = ":" + std::to_string(address->port()) + "/service";
  if (!url.starts_with("http://") || !url.ends_with(end)) std::abort();
  const std::string_view host = std::string_view(url).substr(7, url.size() - 7 - end.size());
  if (host.empty() || host.find_first_of(" /?#@\r\n\t") != std::string_view::npos) std::abort();
  if ((host.front() == '[') != (address->host().find(':') != std::string::npos)) std::abort();
  return 0;
}

#include "Classes/Monitor/CheckedHostName.h"

#include <cstddef>
#include <string_view>

namespace ferrox {

std::string checkedHostName(std::string hostName) {
  constexpr std::string_view withDot = "local.";
  for (auto found = hostName.find(withDot); found != std::string::npos;) {
    const std::size_t dot = found + withDot.size() - 1;
    hostName.erase(dot, 1);
    found = hostName.find(withDot, dot);
  }
  return hostName;
}

}  // namespace ferrox

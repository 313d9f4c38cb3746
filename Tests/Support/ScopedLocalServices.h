// Who this instance is, for as long as a test needs it.
#pragma once

#include <cstdint>
#include <string>

#include "Classes/Utilities/LocalServiceDirectory.h"

namespace ferrox::test {

/// This device as the directory tells it; nobody afterwards.
class ScopedLocalServices {
 public:
  static constexpr const char* frxId = "0123456789ABCDEF0123456789ABCDEF-MTIZNDU=/MY MAC";
  static constexpr std::uint16_t port = 16654;
  static constexpr const char* session = "11111111-2222-4333-8444-555555555555";

  ScopedLocalServices() {
    LocalServiceDirectory::setServerSource([] { return LocalServiceDirectory::LocalServer{frxId, port}; });
    LocalServiceDirectory::setSessionSource([] { return std::string(session); });
  }
  ~ScopedLocalServices() {
    LocalServiceDirectory::setServerSource(nullptr);
    LocalServiceDirectory::setSessionSource(nullptr);
  }
  ScopedLocalServices(const ScopedLocalServices&) = delete;
  ScopedLocalServices& operator=(const ScopedLocalServices&) = delete;
};

}  // namespace ferrox::test

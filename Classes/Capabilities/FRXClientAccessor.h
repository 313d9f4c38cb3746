// One stream or project of a peer, and where it is to be had.
#pragma once

#include <string>
#include <utility>

#include "Platform/Base/Export.h"

namespace ferrox {

/// A value. Thread: any
class FRX_EXPORT FRXClientAccessor {
 public:
  FRXClientAccessor(std::string name, std::string accessURL)
      : name_(std::move(name)), accessURL_(std::move(accessURL)) {}

  /// As the peer shows it: any characters, control characters included.
  const std::string& name() const { return name_; }
  /// An http URL without blanks or control characters.
  const std::string& accessURL() const { return accessURL_; }

  bool operator==(const FRXClientAccessor&) const = default;

 private:
  std::string name_;
  std::string accessURL_;
};

}  // namespace ferrox

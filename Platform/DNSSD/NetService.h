// Handle of one announced service instance, as a DNS-SD browser hands it out (RFC 6763).
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Base/Export.h"

namespace ferrox {

class NetService;

/// Told about one handle. Thread: main
class FRX_EXPORT NetServiceListener {
 public:
  virtual ~NetServiceListener() = default;
  /// The handle has host name and port. Called again when either changes while the handle is resolving or
  /// monitored (a peer that restarted under its name on another port).
  virtual void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) { (void)service; }
  /// Not in time. Unless the handle is stopped it still listens, and resolves when the answer comes late.
  virtual void netServiceDidNotResolve(const std::shared_ptr<NetService>& service) { (void)service; }
  /// `txtData` is the record's rdata: length-prefixed strings (RFC 6763 section 6).
  virtual void netServiceDidUpdateTXTRecordData(const std::shared_ptr<NetService>& service,
                                                const std::string& txtData) {
    (void)service, (void)txtData;
  }
};

/// Thread: main
class FRX_EXPORT NetService {
 public:
  virtual ~NetService() = default;

  virtual const std::string& name() const = 0;
  virtual const std::string& type() const = 0;
  virtual const std::string& domain() const = 0;
  /// With a trailing dot, for example "mac.local."; nothing until resolved.
  virtual std::optional<std::string> hostName() const = 0;
  virtual std::uint16_t port() const = 0;

  virtual void setDelegate(std::weak_ptr<NetServiceListener> listener) = 0;
  virtual void resolveWithTimeout(std::chrono::milliseconds timeout) = 0;
  /// Reports the TXT record now and whenever it is rewritten, until `stopMonitoring()`.
  virtual void startMonitoring() = 0;
  virtual void stopMonitoring() = 0;
  /// Ends a running resolution. Does not end TXT monitoring.
  virtual void stop() = 0;

  /// Same instance name, type and domain.
  bool isEqual(const NetService& other) const {
    return name() == other.name() && type() == other.type() && domain() == other.domain();
  }
};

}  // namespace ferrox

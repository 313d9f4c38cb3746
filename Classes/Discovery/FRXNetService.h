// The record by which one instance of the system is known: where it is, what it calls itself, and whether it
// is believed to be reachable.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"

namespace ferrox {

/// A peer, or this instance itself. Host name, port and the id made of them never change; name and
/// availability may be changed while other threads read them.
/// Thread: any
class FRX_EXPORT FRXNetService {
 public:
  /// Host name and service name are kept upper-cased. An absent host name counts as an empty text in
  /// `serviceId`; such a record must not be published or connected to.
  FRXNetService(std::optional<std::string> hostName, std::int64_t port,
                std::optional<std::string> serviceName);
  virtual ~FRXNetService() = default;
  FRXNetService(const FRXNetService&) = delete;
  FRXNetService& operator=(const FRXNetService&) = delete;

  /// Reads the form that `toJson` writes. Nothing, with `error` filled, for text that is not JSON or whose
  /// top level is neither object nor array. Members are not checked: what is missing or of another type is
  /// absent in the record (port 0), so callers check it before they use it. A "serviceId" is ignored.
  [[nodiscard]] static std::shared_ptr<FRXNetService> fromJson(std::string_view json,
                                                               FRXError* error = nullptr);
  /// {"serviceId": text, "hostName": text, "port": integer, "name": text}. Nothing when host name or name
  /// is absent or not UTF-8.
  [[nodiscard]] std::optional<std::string> toJson() const;

  /// Same host name and port; name and availability play no part.
  bool isEqual(const FRXNetService& other) const;
  /// Agrees with `isEqual`.
  std::size_t hash() const;

  bool isAvailable() const { return available_.load(std::memory_order_relaxed); }
  void setIsAvailable(bool available) { available_.store(available, std::memory_order_relaxed); }
  /// The key of the record: "HOST:port". Not the published service id, which is `name`.
  const std::string& serviceId() const { return serviceId_; }
  const std::optional<std::string>& hostName() const { return hostName_; }
  std::int64_t port() const { return port_; }
  /// The published service id of the instance.
  std::optional<std::string> name() const;
  /// Kept as given.
  void setName(std::optional<std::string> name);

 private:
  const std::optional<std::string> hostName_;
  const std::int64_t port_;
  const std::string serviceId_;
  std::atomic<bool> available_{false};
  mutable std::mutex nameMutex_;
  std::optional<std::string> name_;
};

/// For unordered containers of records, by value instead of by pointer; two empty pointers are equal.
struct FRXNetServiceHash {
  std::size_t operator()(const std::shared_ptr<FRXNetService>& service) const {
    return service ? service->hash() : 0;
  }
};
/// Beside `FRXNetServiceHash`: records that say the same are the same, whichever object holds them.
struct FRXNetServiceEqual {
  bool operator()(const std::shared_ptr<FRXNetService>& a, const std::shared_ptr<FRXNetService>& b) const {
    return a == b || (a && b && a->isEqual(*b));
  }
};

}  // namespace ferrox

// Keeps one service published while the server runs.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "Platform/DNSSD/DNSSD.h"

namespace ferrox {

/// Thread: any
class ServicePublisher {
 public:
  explicit ServicePublisher(DNSSD* discovery);
  ~ServicePublisher();
  ServicePublisher(const ServicePublisher&) = delete;
  ServicePublisher& operator=(const ServicePublisher&) = delete;

  void setType(std::string type);
  void setName(std::string name);
  std::string name() const;
  void setTXTRecordDictionary(TXTDictionary txt);
  TXTDictionary txtRecordDictionary() const;

  /// Publishes, withdrawing what was published before. Does nothing without a type.
  void publish(std::uint16_t port);
  void withdraw();

  /// The longest beginning of `name` that fits a DNS label and cuts no character.
  static std::string fitted(const std::string& name);

 private:
  struct State;
  PublicationRequest makeRequest(std::uint16_t port);

  DNSSD* const discovery_;
  /// Shared with the callbacks of publications, which may come late.
  const std::shared_ptr<State> state_;
  /// Held while talking to the stack, so that records and publications reach it in one order.
  std::mutex publicationMutex_;
  std::unique_ptr<NetServicePublication> publication_;  // guarded by publicationMutex_
};

}  // namespace ferrox

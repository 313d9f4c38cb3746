// A DNS-SD stack that does what the test says and remembers what was asked of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/DNSSD/DNSSD.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::test {

/// A handle whose resolution and TXT record the test plays. Events reach the listener inside the call.
/// Thread: main
class FakeNetService : public NetService, public std::enable_shared_from_this<FakeNetService> {
 public:
  explicit FakeNetService(std::string name, std::string type = "_ferrox._tcp", std::string domain = "local.");

  // Scripted events
  void resolve(std::optional<std::string> hostName, std::uint16_t port);
  void failToResolve();
  /// Rdata as it would arrive. Reported whether or not the handle is monitored: late events do happen.
  void updateTXT(const std::string& rdata);
  /// The address without any event, as a removed handle carries it.
  void setAddress(std::optional<std::string> hostName, std::uint16_t port);

  // What was asked
  const std::vector<std::chrono::milliseconds>& resolutions() const { return resolutions_; }
  bool isResolving() const { return resolving_; }
  bool isMonitored() const { return monitored_; }
  int stopCount() const { return stopCount_; }
  bool hasDelegate() const { return !delegate_.expired(); }

  const std::string& name() const override { return name_; }
  const std::string& type() const override { return type_; }
  const std::string& domain() const override { return domain_; }
  std::optional<std::string> hostName() const override { return hostName_; }
  std::uint16_t port() const override { return port_; }
  void setDelegate(std::weak_ptr<NetServiceListener> listener) override;
  void resolveWithTimeout(std::chrono::milliseconds timeout) override;
  void startMonitoring() override { monitored_ = true; }
  void stopMonitoring() override { monitored_ = false; }
  void stop() override;

 private:
  std::string name_;
  std::string type_;
  std::string domain_;
  std::optional<std::string> hostName_;
  std::uint16_t port_ = 0;
  std::weak_ptr<NetServiceListener> delegate_;
  std::vector<std::chrono::milliseconds> resolutions_;
  bool resolving_ = false;
  bool monitored_ = false;
  int stopCount_ = 0;
};

/// One publication as seen from outside. `txtHistory` begins with the record of the request.
struct FakePublication {
  PublicationRequest request;
  std::vector<TXTDictionary> txtHistory;
  bool isWithdrawn = false;
};

/// One search as seen from outside.
struct FakeSearch {
  std::string type;
  std::string domain;
  bool isRunning = false;
};

struct FakeReconfirmation {
  std::uint32_t flags = 0;
  std::uint32_t interfaceIndex = 0;
  std::string fullName;
  std::uint16_t recordType = 0;
  std::uint16_t recordClass = 0;
  std::string rdata;
};

/// Publications and reconfirmations may be asked for on any thread; everything scripted runs on the main
/// thread. Must outlive what it made.
class FakeDNSSD : public DNSSD {
 public:
  explicit FakeDNSSD(RunLoop& mainLoop);
  ~FakeDNSSD() override;

  // Scripted events, delivered to every running browser inside the call
  void find(const std::shared_ptr<NetService>& service, bool moreComing = false);
  void remove(const std::shared_ptr<NetService>& service, bool moreComing = false);
  /// Reports the name under which publication `index` is visible, or its failure, through the main loop.
  void confirmPublication(std::size_t index, std::string finalName);
  void failPublication(std::size_t index, FRXError error);

  // Scripted answers
  /// On (the default): a publication is confirmed at once under the name it asked for.
  void setConfirmsPublications(bool confirms);
  void setReconfirmResult(int code);
  void setAddresses(std::string hostName, std::vector<SocketAddress> addresses);
  void setBackEndName(std::string_view name);

  // What was asked
  std::vector<FakeSearch> searches() const;
  std::vector<FakePublication> publications() const;
  std::vector<FakeReconfirmation> reconfirmations() const;
  std::vector<std::string> hostNameLookups() const;
  int refreshCount() const;

  std::unique_ptr<NetServiceBrowser> makeBrowser() override;
  std::unique_ptr<NetServicePublication> publish(PublicationRequest request) override;
  int reconfirmRecord(std::uint32_t flags, std::uint32_t interfaceIndex, const std::string& fullName,
                      std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) override;
  /// Answers from `setAddresses`, an empty list otherwise, on a thread of its own.
  void resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                       std::function<void(std::vector<SocketAddress>)> completion) override;
  void refresh() override;
  std::string_view backEndName() const override;

 private:
  class Browser;
  class Publication;
  struct Shared;

  void deliver(const std::function<void(NetServiceBrowserListener&)>& event);

  RunLoop& mainLoop_;
  std::shared_ptr<Shared> shared_;
};

}  // namespace ferrox::test

#include "Tests/Support/FakeDNSSD.h"

#include <atomic>
#include <utility>

namespace ferrox::test {

FakeNetService::FakeNetService(std::string name, std::string type, std::string domain)
    : name_(std::move(name)), type_(std::move(type)), domain_(std::move(domain)) {}

void FakeNetService::resolve(std::optional<std::string> hostName, std::uint16_t port) {
  setAddress(std::move(hostName), port);
  if (auto listener = delegate_.lock()) listener->netServiceDidResolveAddress(shared_from_this());
}

void FakeNetService::failToResolve() {
  resolving_ = false;
  if (auto listener = delegate_.lock()) listener->netServiceDidNotResolve(shared_from_this());
}

void FakeNetService::updateTXT(const std::string& rdata) {
  if (auto listener = delegate_.lock()) listener->netServiceDidUpdateTXTRecordData(shared_from_this(), rdata);
}

void FakeNetService::setAddress(std::optional<std::string> hostName, std::uint16_t port) {
  hostName_ = std::move(hostName);
  port_ = port;
}

void FakeNetService::setDelegate(std::weak_ptr<NetServiceListener> listener) {
  delegate_ = std::move(listener);
}

void FakeNetService::resolveWithTimeout(std::chrono::milliseconds timeout) {
  resolutions_.push_back(timeout);
  resolving_ = true;
}

void FakeNetService::stop() {
  resolving_ = false;
  ++stopCount_;
}

struct FakeDNSSD::Shared {
  mutable std::mutex mutex;
  std::vector<FakeSearch> searches;
  std::vector<std::weak_ptr<NetServiceBrowserListener>> listeners;
  std::vector<FakePublication> publications;
  std::vector<FakeReconfirmation> reconfirmations;
  std::vector<std::string> lookups;
  std::map<std::string, std::vector<SocketAddress>> addresses;
  std::vector<std::thread> threads;
  std::string_view backEndName = "embedded";
  bool confirmsPublications = true;
  int reconfirmResult = 0;
  int refreshCount = 0;
};

class FakeDNSSD::Browser : public NetServiceBrowser {
 public:
  explicit Browser(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {
    std::lock_guard lock(shared_->mutex);
    index_ = shared_->searches.size();
    shared_->searches.emplace_back();
    shared_->listeners.emplace_back();
  }
  ~Browser() override { stop(); }

  void setDelegate(std::weak_ptr<NetServiceBrowserListener> listener) override {
    std::lock_guard lock(shared_->mutex);
    shared_->listeners[index_] = std::move(listener);
  }
  void searchForServices(const std::string& type, const std::string& domain) override {
    std::lock_guard lock(shared_->mutex);
    shared_->searches[index_] = {type, domain, true};
  }
  void stop() override {
    std::lock_guard lock(shared_->mutex);
    shared_->searches[index_].isRunning = false;
  }

 private:
  std::shared_ptr<Shared> shared_;
  std::size_t index_ = 0;
};

class FakeDNSSD::Publication : public NetServicePublication {
 public:
  Publication(std::shared_ptr<Shared> shared, std::size_t index)
      : shared_(std::move(shared)), index_(index) {}
  ~Publication() override {
    std::lock_guard lock(shared_->mutex);
    shared_->publications[index_].isWithdrawn = true;
  }
  void setTXTRecord(TXTDictionary txt) override {
    std::lock_guard lock(shared_->mutex);
    shared_->publications[index_].txtHistory.push_back(std::move(txt));
  }

 private:
  std::shared_ptr<Shared> shared_;
  std::size_t index_;
};

FakeDNSSD::FakeDNSSD(RunLoop& mainLoop) : mainLoop_(mainLoop), shared_(std::make_shared<Shared>()) {}

FakeDNSSD::~FakeDNSSD() {
  std::vector<std::thread> threads;
  {
    std::lock_guard lock(shared_->mutex);
    threads.swap(shared_->threads);
  }
  for (std::thread& thread : threads) thread.join();
}

void FakeDNSSD::deliver(const std::function<void(NetServiceBrowserListener&)>& event) {
  std::vector<std::weak_ptr<NetServiceBrowserListener>> listeners;
  {
    std::lock_guard lock(shared_->mutex);
    for (std::size_t i = 0; i < shared_->searches.size(); ++i) {
      if (shared_->searches[i].isRunning) listeners.push_back(shared_->listeners[i]);
    }
  }
  for (const auto& weak : listeners) {
    if (auto listener = weak.lock()) event(*listener);
  }
}

void FakeDNSSD::find(const std::shared_ptr<NetService>& service, bool moreComing) {
  deliver([&service, moreComing](NetServiceBrowserListener& listener) {
    listener.netServiceBrowserDidFindService(service, moreComing);
  });
}

void FakeDNSSD::remove(const std::shared_ptr<NetService>& service, bool moreComing) {
  deliver([&service, moreComing](NetServiceBrowserListener& listener) {
    listener.netServiceBrowserDidRemoveService(service, moreComing);
  });
}

void FakeDNSSD::confirmPublication(std::size_t index, std::string finalName) {
  std::function<void(const std::string&)> callback;
  {
    std::lock_guard lock(shared_->mutex);
    callback = shared_->publications.at(index).request.onPublished;
  }
  if (!callback) return;
  mainLoop_.post([shared = shared_, index, callback = std::move(callback), name = std::move(finalName)] {
    {
      std::lock_guard lock(shared->mutex);
      if (shared->publications[index].isWithdrawn) return;
    }
    callback(name);
  });
}

void FakeDNSSD::failPublication(std::size_t index, FRXError error) {
  std::function<void(const FRXError&)> callback;
  {
    std::lock_guard lock(shared_->mutex);
    callback = shared_->publications.at(index).request.onFailed;
  }
  if (!callback) return;
  mainLoop_.post([callback = std::move(callback), error = std::move(error)] { callback(error); });
}

void FakeDNSSD::setConfirmsPublications(bool confirms) {
  std::lock_guard lock(shared_->mutex);
  shared_->confirmsPublications = confirms;
}

void FakeDNSSD::setReconfirmResult(int code) {
  std::lock_guard lock(shared_->mutex);
  shared_->reconfirmResult = code;
}

void FakeDNSSD::setAddresses(std::string hostName, std::vector<SocketAddress> addresses) {
  std::lock_guard lock(shared_->mutex);
  shared_->addresses[std::move(hostName)] = std::move(addresses);
}

void FakeDNSSD::setBackEndName(std::string_view name) {
  std::lock_guard lock(shared_->mutex);
  shared_->backEndName = name;
}

std::vector<FakeSearch> FakeDNSSD::searches() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->searches;
}

std::vector<FakePublication> FakeDNSSD::publications() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->publications;
}

std::vector<FakeReconfirmation> FakeDNSSD::reconfirmations() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->reconfirmations;
}

std::vector<std::string> FakeDNSSD::hostNameLookups() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->lookups;
}

int FakeDNSSD::refreshCount() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->refreshCount;
}

std::unique_ptr<NetServiceBrowser> FakeDNSSD::makeBrowser() { return std::make_unique<Browser>(shared_); }

std::unique_ptr<NetServicePublication> FakeDNSSD::publish(PublicationRequest request) {
  std::size_t index = 0;
  bool confirms = false;
  const std::string name = request.name;
  {
    std::lock_guard lock(shared_->mutex);
    index = shared_->publications.size();
    FakePublication publication;
    publication.txtHistory.push_back(request.txt);
    publication.request = std::move(request);
    shared_->publications.push_back(std::move(publication));
    confirms = shared_->confirmsPublications;
  }
  if (confirms) confirmPublication(index, name);
  return std::make_unique<Publication>(shared_, index);
}

int FakeDNSSD::reconfirmRecord(std::uint32_t flags, std::uint32_t interfaceIndex, const std::string& fullName,
                               std::uint16_t recordType, std::uint16_t recordClass, std::string rdata) {
  std::lock_guard lock(shared_->mutex);
  shared_->reconfirmations.push_back(
      {flags, interfaceIndex, fullName, recordType, recordClass, std::move(rdata)});
  return shared_->reconfirmResult;
}

void FakeDNSSD::resolveHostName(const std::string& name, std::chrono::milliseconds,
                                std::function<void(std::vector<SocketAddress>)> completion) {
  std::lock_guard lock(shared_->mutex);
  shared_->lookups.push_back(name);
  std::vector<SocketAddress> addresses;
  if (auto found = shared_->addresses.find(name); found != shared_->addresses.end())
    addresses = found->second;
  shared_->threads.emplace_back(
      [completion = std::move(completion), addresses = std::move(addresses)] { completion(addresses); });
}

void FakeDNSSD::refresh() {
  std::lock_guard lock(shared_->mutex);
  ++shared_->refreshCount;
}

std::string_view FakeDNSSD::backEndName() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->backEndName;
}

}  // namespace ferrox::test

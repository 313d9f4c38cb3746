#include "Platform/DNSSD/DaemonBackEnd.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/error.h>
#include <dlfcn.h>

#include <chrono>
#include <utility>

#include "Platform/DNSSD/AvahiSupport.h"
#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto multicastOnly = AVAHI_LOOKUP_USE_MULTICAST;
constexpr AvahiPublishFlags noPublishFlags{};
constexpr auto reconnectDelay = 1s;

// avahi-core exports an internal function under the name of this public one of avahi-client, and being linked
// first it wins for every ordinary call. So the client's is asked for by its library. (The client itself only
// calls it for groups that are left when it is freed; ours are all gone by then.)
void freeClientGroup(AvahiEntryGroup* group) {
  using Free = int (*)(AvahiEntryGroup*);
  static const Free freeGroup = [] {
    void* library = dlopen("libavahi-client.so.3", RTLD_NOW | RTLD_NOLOAD);
    return library == nullptr ? nullptr : reinterpret_cast<Free>(dlsym(library, "avahi_entry_group_free"));
  }();
  if (freeGroup != nullptr) {
    freeGroup(group);
  } else {
    avahi_entry_group_reset(group);
  }
}

class DaemonBrowser final : public Lookup {
 public:
  DaemonBrowser(DiscoveryThread& thread, BackEnd::LookupHandler handler)
      : reporter_(thread, std::move(handler)) {}
  ~DaemonBrowser() override {
    if (browser_ != nullptr) avahi_service_browser_free(browser_);
  }

  bool open(AvahiClient* client, const std::string& type, const std::string& domain) {
    browser_ = avahi_service_browser_new(client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.c_str(),
                                         domain.c_str(), multicastOnly, report, this);
    return browser_ != nullptr;
  }

 private:
  static void report(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                     AvahiBrowserEvent event, const char* name, const char*, const char*,
                     AvahiLookupResultFlags, void* self) {
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) return;
    static_cast<DaemonBrowser*>(self)->reporter_.report(
        {lookupEvent(event), placeOf(interface, protocol), name == nullptr ? "" : name});
  }

  Reporter<LookupReport> reporter_;
  AvahiServiceBrowser* browser_ = nullptr;
};

class DaemonRecordWatch final : public Lookup {
 public:
  DaemonRecordWatch(DiscoveryThread& thread, BackEnd::LookupHandler handler)
      : reporter_(thread, std::move(handler)) {}
  ~DaemonRecordWatch() override {
    if (browser_ != nullptr) avahi_record_browser_free(browser_);
  }

  bool open(AvahiClient* client, const std::string& name, std::uint16_t type) {
    browser_ = avahi_record_browser_new(client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, name.c_str(),
                                        recordClassIN, type, multicastOnly, report, this);
    return browser_ != nullptr;
  }

 private:
  static void report(AvahiRecordBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                     AvahiBrowserEvent event, const char*, std::uint16_t, std::uint16_t, const void* rdata,
                     std::size_t size, AvahiLookupResultFlags, void* self) {
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) return;
    LookupReport report{lookupEvent(event), placeOf(interface, protocol), {}};
    if (rdata != nullptr) report.what.assign(static_cast<const char*>(rdata), size);
    static_cast<DaemonRecordWatch*>(self)->reporter_.report(std::move(report));
  }

  Reporter<LookupReport> reporter_;
  AvahiRecordBrowser* browser_ = nullptr;
};

class DaemonGroup final : public ServiceGroup {
 public:
  DaemonGroup(DiscoveryThread& thread, ServiceRecords records, std::vector<int> interfaces,
              BackEnd::GroupHandler handler)
      : reporter_(thread, [handler = std::move(handler)](const GroupEvent& event) { handler(event); }),
        records_(std::move(records)),
        interfaces_(std::move(interfaces)) {}
  ~DaemonGroup() override {
    if (group_ != nullptr) freeClientGroup(group_);
  }

  PublishError open(AvahiClient* client) {
    group_ = avahi_entry_group_new(client, report, this);
    if (group_ == nullptr) return publishErrorFromAvahi(avahi_client_errno(client));
    const StringList txt = stringListFromRdata(records_.txt);
    for (const int interface : interfaces_) {
      const int added = avahi_entry_group_add_service_strlst(
          group_, interface, AVAHI_PROTO_UNSPEC, noPublishFlags, records_.name.c_str(), records_.type.c_str(),
          records_.domain.c_str(), nullptr, records_.port, txt.get());
      if (added != AVAHI_OK) return publishErrorFromAvahi(added);
    }
    return publishErrorFromAvahi(avahi_entry_group_commit(group_));
  }

  bool updateTXT(const std::string& rdata) override {
    const StringList txt = stringListFromRdata(rdata);
    for (const int interface : interfaces_) {
      const int updated = avahi_entry_group_update_service_txt_strlst(
          group_, interface, AVAHI_PROTO_UNSPEC, noPublishFlags, records_.name.c_str(), records_.type.c_str(),
          records_.domain.c_str(), txt.get());
      if (updated != AVAHI_OK) return false;
    }
    return true;
  }

  const std::vector<int>& interfaces() const { return interfaces_; }

 private:
  static void report(AvahiEntryGroup*, AvahiEntryGroupState state, void* self) {
    auto& reporter = static_cast<DaemonGroup*>(self)->reporter_;
    if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) reporter.report(GroupEvent::Established);
    if (state == AVAHI_ENTRY_GROUP_COLLISION) reporter.report(GroupEvent::Collision);
    if (state == AVAHI_ENTRY_GROUP_FAILURE) reporter.report(GroupEvent::Failed);
  }

  Reporter<GroupEvent> reporter_;
  ServiceRecords records_;
  std::vector<int> interfaces_;
  AvahiEntryGroup* group_ = nullptr;
};

void reportState(AvahiClient*, AvahiClientState state, void* reporter) {
  static_cast<Reporter<int>*>(reporter)->report(state);
}

}  // namespace

DaemonBackEnd::DaemonBackEnd(DiscoveryThread& thread) : thread_(thread), adapter_(thread.context()) {}

DaemonBackEnd::~DaemonBackEnd() { disconnect(); }

bool DaemonBackEnd::connectIfRunning() { return connect(false); }

void DaemonBackEnd::start(BackEndListener& listener, const InterfaceSelection& interfaces) {
  listener_ = &listener;
  interfaces_ = interfaces;
  if (client_ == nullptr && !connect(true)) reconnectLater();
}

void DaemonBackEnd::stop() {
  retry_.reset();
  disconnect();
  listener_ = nullptr;
}

bool DaemonBackEnd::connect(bool waitForDaemon) {
  states_ = std::make_unique<Reporter<int>>(thread_, [this](const int& state) { clientStateChanged(state); });
  const AvahiClientFlags flags = waitForDaemon ? AVAHI_CLIENT_NO_FAIL : AvahiClientFlags{};
  int error = 0;
  client_ = avahi_client_new(adapter_.poll(), flags, reportState, states_.get(), &error);
  if (client_ != nullptr) return true;
  states_.reset();
  if (waitForDaemon && !std::exchange(lossReported_, true)) {
    FRX_LOG_WARN(std::string("The discovery daemon cannot be reached: ") + avahi_strerror(error));
  }
  return false;
}

void DaemonBackEnd::disconnect() {
  setPublishing(false);
  setLookups(false);
  if (client_ == nullptr) return;
  avahi_client_free(client_);
  client_ = nullptr;
  states_.reset();
}

void DaemonBackEnd::reconnectLater() {
  retry_ = thread_.after(reconnectDelay, [this] {
    if (!connect(true)) reconnectLater();
  });
}

void DaemonBackEnd::clientStateChanged(int state) {
  if (listener_ == nullptr) return;
  switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
      if (std::exchange(lossReported_, false)) FRX_LOG_DEBUG(std::string("The discovery daemon is back"));
      setLookups(true);
      setPublishing(true);
      break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
      setLookups(true);
      setPublishing(false);
      break;
    case AVAHI_CLIENT_FAILURE:
      if (!std::exchange(lossReported_, true)) {
        FRX_LOG_WARN(std::string("The discovery daemon is gone; waiting for it"));
      }
      disconnect();
      reconnectLater();
      break;
    default:
      break;
  }
}

void DaemonBackEnd::setLookups(bool possible) {
  if (!listener_ || possible == lookups_) return;
  lookups_ = possible;
  if (possible) {
    listener_->backEndDidStart();
  } else {
    listener_->backEndWillStop();
  }
}

void DaemonBackEnd::setPublishing(bool possible) {
  if (!listener_ || possible == publishing_) return;
  publishing_ = possible;
  if (possible) {
    listener_->publishingDidStart();
  } else {
    listener_->publishingWillStop();
  }
}

std::vector<int> DaemonBackEnd::publishedInterfaces() const {
  if (interfaces_.everythingPermitted) return {AVAHI_IF_UNSPEC};
  std::vector<int> indices;
  for (const NetworkInterface& interface : interfaces_.inUse) indices.push_back(interface.index);
  return indices;
}

std::unique_ptr<Lookup> DaemonBackEnd::browse(const std::string& type, const std::string& domain,
                                              LookupHandler handler) {
  if (!lookups_) return nullptr;
  auto browser = std::make_unique<DaemonBrowser>(thread_, std::move(handler));
  if (!browser->open(client_, type, domain)) return nullptr;
  return browser;
}

std::unique_ptr<Lookup> DaemonBackEnd::watchRecord(const std::string& name, std::uint16_t recordType,
                                                   LookupHandler handler) {
  if (!lookups_) return nullptr;
  auto watch = std::make_unique<DaemonRecordWatch>(thread_, std::move(handler));
  if (!watch->open(client_, name, recordType)) return nullptr;
  return watch;
}

bool DaemonBackEnd::coversInterfaces(const ServiceGroup& group) const {
  return static_cast<const DaemonGroup&>(group).interfaces() == publishedInterfaces();
}

std::unique_ptr<ServiceGroup> DaemonBackEnd::publish(const ServiceRecords& records, GroupHandler handler,
                                                     PublishError& error) {
  error = PublishError::Temporary;
  const auto interfaces = publishedInterfaces();
  if (!publishing_ || interfaces.empty()) return nullptr;
  auto group = std::make_unique<DaemonGroup>(thread_, records, interfaces, std::move(handler));
  error = group->open(client_);
  if (error != PublishError::None) return nullptr;
  return group;
}

}  // namespace ferrox::dnssd

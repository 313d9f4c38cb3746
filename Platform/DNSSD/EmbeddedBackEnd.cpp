#include "Platform/DNSSD/EmbeddedBackEnd.h"

#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/core.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "Platform/DNSSD/AvahiSupport.h"
#include "Platform/DNSSD/Reporter.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr auto multicastOnly = AVAHI_LOOKUP_USE_MULTICAST;
constexpr AvahiPublishFlags noPublishFlags{};

std::optional<std::string> rdataOf(AvahiRecord* record) {
  std::array<char, 9000> buffer{};
  const std::size_t size = avahi_rdata_serialize(record, buffer.data(), buffer.size());
  if (size == static_cast<std::size_t>(-1)) return std::nullopt;
  return std::string(buffer.data(), size);
}

class EmbeddedBrowser final : public Lookup {
 public:
  EmbeddedBrowser(DiscoveryThread& thread, BackEnd::LookupHandler handler)
      : reporter_(thread, std::move(handler)) {}
  ~EmbeddedBrowser() override {
    if (browser_ != nullptr) avahi_s_service_browser_free(browser_);
  }

  bool open(AvahiServer* server, const std::string& type, const std::string& domain) {
    browser_ = avahi_s_service_browser_new(server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.c_str(),
                                           domain.c_str(), multicastOnly, report, this);
    return browser_ != nullptr;
  }

 private:
  static void report(AvahiSServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                     AvahiBrowserEvent event, const char* name, const char*, const char*,
                     AvahiLookupResultFlags, void* self) {
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) return;
    static_cast<EmbeddedBrowser*>(self)->reporter_.report(
        {lookupEvent(event), placeOf(interface, protocol), name == nullptr ? "" : name});
  }

  Reporter<LookupReport> reporter_;
  AvahiSServiceBrowser* browser_ = nullptr;
};

class EmbeddedRecordWatch final : public Lookup {
 public:
  EmbeddedRecordWatch(DiscoveryThread& thread, BackEnd::LookupHandler handler)
      : reporter_(thread, std::move(handler)) {}
  ~EmbeddedRecordWatch() override {
    if (browser_ != nullptr) avahi_s_record_browser_free(browser_);
  }

  bool open(AvahiServer* server, const std::string& name, std::uint16_t type) {
    AvahiKey* key = avahi_key_new(name.c_str(), AVAHI_DNS_CLASS_IN, type);
    if (key == nullptr) return false;
    browser_ = avahi_s_record_browser_new(server, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, key, multicastOnly,
                                          report, this);
    avahi_key_unref(key);
    return browser_ != nullptr;
  }

 private:
  static void report(AvahiSRecordBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                     AvahiBrowserEvent event, AvahiRecord* record, AvahiLookupResultFlags, void* self) {
    if (event == AVAHI_BROWSER_CACHE_EXHAUSTED) return;
    LookupReport report{lookupEvent(event), placeOf(interface, protocol), {}};
    if (record != nullptr) {
      auto rdata = rdataOf(record);
      if (!rdata) return;
      report.what = std::move(*rdata);
    }
    static_cast<EmbeddedRecordWatch*>(self)->reporter_.report(std::move(report));
  }

  Reporter<LookupReport> reporter_;
  AvahiSRecordBrowser* browser_ = nullptr;
};

class EmbeddedGroup final : public ServiceGroup {
 public:
  EmbeddedGroup(DiscoveryThread& thread, AvahiServer* server, ServiceRecords records,
                BackEnd::GroupHandler handler)
      : reporter_(thread, [handler = std::move(handler)](const GroupEvent& event) { handler(event); }),
        server_(server),
        records_(std::move(records)) {}
  ~EmbeddedGroup() override {
    if (group_ != nullptr) avahi_s_entry_group_free(group_);
  }

  PublishError open() {
    group_ = avahi_s_entry_group_new(server_, report, this);
    if (group_ == nullptr) return publishErrorFromAvahi(avahi_server_errno(server_));
    const StringList txt = stringListFromRdata(records_.txt);
    const int added = avahi_server_add_service_strlst(
        server_, group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, noPublishFlags, records_.name.c_str(),
        records_.type.c_str(), records_.domain.c_str(), nullptr, records_.port, txt.get());
    if (added != AVAHI_OK) return publishErrorFromAvahi(added);
    return publishErrorFromAvahi(avahi_s_entry_group_commit(group_));
  }

  bool updateTXT(const std::string& rdata) override {
    const StringList txt = stringListFromRdata(rdata);
    return avahi_server_update_service_txt_strlst(
               server_, group_, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, noPublishFlags, records_.name.c_str(),
               records_.type.c_str(), records_.domain.c_str(), txt.get()) == AVAHI_OK;
  }

 private:
  static void report(AvahiServer*, AvahiSEntryGroup*, AvahiEntryGroupState state, void* self) {
    auto& reporter = static_cast<EmbeddedGroup*>(self)->reporter_;
    if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) reporter.report(GroupEvent::Established);
    if (state == AVAHI_ENTRY_GROUP_COLLISION) reporter.report(GroupEvent::Collision);
    if (state == AVAHI_ENTRY_GROUP_FAILURE) reporter.report(GroupEvent::Failed);
  }

  Reporter<GroupEvent> reporter_;
  AvahiServer* server_;
  ServiceRecords records_;
  AvahiSEntryGroup* group_ = nullptr;
};

struct ServerConfig {
  ServerConfig() { avahi_server_config_init(&values); }
  ~ServerConfig() { avahi_server_config_free(&values); }
  ServerConfig(const ServerConfig&) = delete;
  ServerConfig& operator=(const ServerConfig&) = delete;
  AvahiServerConfig values{};
};

void fillConfig(AvahiServerConfig& config, const std::optional<std::string>& hostName,
                const std::vector<std::string>& names) {
  // We publish what the host asked for and nothing about the machine beside its addresses.
  config.publish_hinfo = 0;
  config.publish_workstation = 0;
  config.publish_domain = 0;
  config.enable_wide_area = 0;
  config.n_wide_area_servers = 0;
  // A pulled cable is a link that went away.
  config.use_iff_running = 1;
  config.allow_point_to_point = 1;
  if (hostName) config.host_name = avahi_strdup(hostName->c_str());
  for (const std::string& name : names) {
    config.allow_interfaces = avahi_string_list_add(config.allow_interfaces, name.c_str());
  }
  // An empty list would mean all of them.
  if (names.empty()) config.allow_interfaces = avahi_string_list_add(nullptr, "none");
}

}  // namespace

class EmbeddedBackEnd::Reports : public std::enable_shared_from_this<EmbeddedBackEnd::Reports> {
 public:
  explicit Reports(EmbeddedBackEnd& owner) : owner_(owner) {}

  static void stateChanged(AvahiServer*, AvahiServerState state, void* self) {
    auto& reports = *static_cast<Reports*>(self);
    reports.owner_.thread_.post([weak = reports.weak_from_this(), state] {
      if (const auto alive = weak.lock()) alive->owner_.serverStateChanged(state);
    });
  }

 private:
  EmbeddedBackEnd& owner_;
};

EmbeddedBackEnd::EmbeddedBackEnd(DiscoveryThread& thread, std::optional<std::string> hostName)
    : thread_(thread), adapter_(thread.context()), hostName_(std::move(hostName)) {
  routeAvahiLog();
}

EmbeddedBackEnd::~EmbeddedBackEnd() { close(); }

void EmbeddedBackEnd::start(BackEndListener& listener, const InterfaceSelection& interfaces) {
  listener_ = &listener;
  names_ = interfaces.permittedNames;
  open();
}

void EmbeddedBackEnd::stop() {
  retry_.reset();
  close();
  listener_ = nullptr;
}

void EmbeddedBackEnd::interfacesChanged(const InterfaceSelection& interfaces) {
  const auto isKnown = [this](const std::string& name) {
    return std::find(names_.begin(), names_.end(), name) != names_.end();
  };
  const auto& permitted = interfaces.permittedNames;
  if (std::all_of(permitted.begin(), permitted.end(), isKnown)) return;
  FRX_LOG_DEBUG(std::string("A new network interface: the mDNS stack starts anew"));
  names_ = permitted;
  close();
  open();
}

void EmbeddedBackEnd::open() {
  ServerConfig config;
  fillConfig(config.values, hostName_, names_);
  reports_ = std::make_shared<Reports>(*this);
  int error = 0;
  server_ = avahi_server_new(adapter_.poll(), &config.values, Reports::stateChanged, reports_.get(), &error);
  if (server_ == nullptr) {
    FRX_LOG_WARN(std::string("The mDNS stack cannot start: ") + avahi_strerror(error));
    retryLater();
    return;
  }
  failures_ = 0;
  listener_->backEndDidStart();
}

void EmbeddedBackEnd::close() {
  reports_.reset();
  if (server_ == nullptr) return;
  setPublishing(false);
  listener_->backEndWillStop();
  avahi_server_free(server_);
  server_ = nullptr;
}

void EmbeddedBackEnd::retryLater() {
  const auto delay = std::min<std::chrono::seconds>(30s, std::chrono::seconds(1 << std::min(failures_, 5)));
  ++failures_;
  retry_ = thread_.after(delay, [this] { open(); });
}

void EmbeddedBackEnd::setPublishing(bool possible) {
  if (possible == publishing_) return;
  publishing_ = possible;
  if (possible) {
    listener_->publishingDidStart();
  } else {
    listener_->publishingWillStop();
  }
}

void EmbeddedBackEnd::serverStateChanged(int state) {
  if (state == AVAHI_SERVER_RUNNING) {
    setPublishing(true);
  } else if (state == AVAHI_SERVER_REGISTERING) {
    setPublishing(false);
  } else if (state == AVAHI_SERVER_COLLISION) {
    setPublishing(false);
    cureHostNameCollision();
  } else if (state == AVAHI_SERVER_FAILURE) {
    FRX_LOG_WARN(std::string("The mDNS stack failed: ") + avahi_strerror(avahi_server_errno(server_)));
    close();
    retryLater();
  }
}

void EmbeddedBackEnd::cureHostNameCollision() {
  const std::string name = alternativeHostName(avahi_server_get_host_name(server_));
  FRX_LOG_WARN("Another machine has this host name; continuing as " + name + ".local");
  hostName_ = name;
  if (avahi_server_set_host_name(server_, name.c_str()) == AVAHI_OK) return;
  close();
  retryLater();
}

std::unique_ptr<Lookup> EmbeddedBackEnd::browse(const std::string& type, const std::string& domain,
                                                LookupHandler handler) {
  if (server_ == nullptr) return nullptr;
  auto browser = std::make_unique<EmbeddedBrowser>(thread_, std::move(handler));
  if (!browser->open(server_, type, domain)) return nullptr;
  return browser;
}

std::unique_ptr<Lookup> EmbeddedBackEnd::watchRecord(const std::string& name, std::uint16_t recordType,
                                                     LookupHandler handler) {
  if (server_ == nullptr) return nullptr;
  auto watch = std::make_unique<EmbeddedRecordWatch>(thread_, std::move(handler));
  if (!watch->open(server_, name, recordType)) return nullptr;
  return watch;
}

std::unique_ptr<ServiceGroup> EmbeddedBackEnd::publish(const ServiceRecords& records, GroupHandler handler,
                                                       PublishError& error) {
  error = PublishError::Temporary;
  if (server_ == nullptr || !publishing_) return nullptr;
  auto group = std::make_unique<EmbeddedGroup>(thread_, server_, records, std::move(handler));
  error = group->open();
  if (error != PublishError::None) return nullptr;
  return group;
}

}  // namespace ferrox::dnssd

#include "Platform/DNSSD/AvahiSupport.h"

#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/log.h>

#include <array>
#include <mutex>
#include <vector>

#include "Platform/Log/Log.h"

namespace ferrox::dnssd {
namespace {

std::string takeText(char* text) {
  std::string result = text == nullptr ? std::string() : std::string(text);
  avahi_free(text);
  return result;
}

// Two nodes on one machine are an ordinary case here, so the warning about it is none.
bool isAboutOtherStacks(std::string_view text) { return text.find("mDNS stack") != std::string_view::npos; }

void writeAvahiLog(AvahiLogLevel level, const char* text) {
  const bool serious = level <= AVAHI_LOG_WARN && !isAboutOtherStacks(text);
  if (serious) {
    FRX_LOG_WARN(std::string("mDNS stack: ") + text);
  } else {
    FRX_LOG_DEBUG(std::string("mDNS stack: ") + text);
  }
}

}  // namespace

std::optional<std::string> escapedServiceName(const std::string& name, const std::string& type,
                                              const std::string& domain) {
  std::array<char, AVAHI_DOMAIN_NAME_MAX> buffer{};
  const int failure =
      avahi_service_name_join(buffer.data(), buffer.size(), name.c_str(), type.c_str(), domain.c_str());
  if (failure != AVAHI_OK) return std::nullopt;
  return std::string(buffer.data());
}

std::string alternativeServiceName(const std::string& name) {
  return takeText(avahi_alternative_service_name(name.c_str()));
}

std::string alternativeHostName(const std::string& name) {
  return takeText(avahi_alternative_host_name(name.c_str()));
}

StringList stringListFromRdata(std::string_view rdata) {
  std::vector<std::string_view> strings;
  while (!rdata.empty()) {
    const std::size_t length = static_cast<unsigned char>(rdata.front());
    if (length + 1 > rdata.size()) break;
    if (length > 0) strings.push_back(rdata.substr(1, length));
    rdata.remove_prefix(length + 1);
  }
  // Adding puts a string in front.
  AvahiStringList* list = nullptr;
  for (auto text = strings.rbegin(); text != strings.rend(); ++text) {
    list = avahi_string_list_add_arbitrary(list, reinterpret_cast<const std::uint8_t*>(text->data()),
                                           text->size());
  }
  return StringList(list);
}

PublishError publishErrorFromAvahi(int error) {
  switch (error) {
    case AVAHI_OK:
      return PublishError::None;
    case AVAHI_ERR_COLLISION:
      return PublishError::Collision;
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
    case AVAHI_ERR_INVALID_PORT:
    case AVAHI_ERR_INVALID_RECORD:
    case AVAHI_ERR_INVALID_ARGUMENT:
    case AVAHI_ERR_NOT_PERMITTED:
    case AVAHI_ERR_NOT_SUPPORTED:
      return PublishError::Invalid;
    default:
      return PublishError::Temporary;
  }
}

Place placeOf(AvahiIfIndex interface, AvahiProtocol protocol) {
  return {interface, protocol == AVAHI_PROTO_INET6};
}

LookupEvent lookupEvent(AvahiBrowserEvent event) {
  switch (event) {
    case AVAHI_BROWSER_NEW:
      return LookupEvent::Added;
    case AVAHI_BROWSER_REMOVE:
      return LookupEvent::Removed;
    case AVAHI_BROWSER_ALL_FOR_NOW:
      return LookupEvent::AllForNow;
    default:
      return LookupEvent::Failed;
  }
}

void routeAvahiLog() {
  static std::once_flag once;
  std::call_once(once, [] { avahi_set_log_function(writeAvahiLog); });
}

}  // namespace ferrox::dnssd

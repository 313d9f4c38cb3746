// Small things that both Avahi back ends need: names, string lists, record data, and the log.
#pragma once

#include <avahi-common/address.h>
#include <avahi-common/defs.h>
#include <avahi-common/strlst.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/DNSSD/BackEnd.h"

namespace ferrox::dnssd {

/// "name.type.domain" with the instance name escaped; nothing when Avahi holds one of them for invalid.
std::optional<std::string> escapedServiceName(const std::string& name, const std::string& type,
                                              const std::string& domain);

/// Another name to try after a conflict, still at most 63 bytes long.
std::string alternativeServiceName(const std::string& name);
std::string alternativeHostName(const std::string& name);

struct StringListDeleter {
  void operator()(AvahiStringList* list) const { avahi_string_list_free(list); }
};
using StringList = std::unique_ptr<AvahiStringList, StringListDeleter>;

/// TXT record data as Avahi takes it.
StringList stringListFromRdata(std::string_view rdata);

PublishError publishErrorFromAvahi(int error);
Place placeOf(AvahiIfIndex interface, AvahiProtocol protocol);
LookupEvent lookupEvent(AvahiBrowserEvent event);

/// What Avahi prints goes to the library's log. Once for the process. Thread: any
void routeAvahiLog();

}  // namespace ferrox::dnssd

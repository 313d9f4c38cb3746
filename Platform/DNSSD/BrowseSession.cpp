#include "Platform/DNSSD/BrowseSession.h"

#include <algorithm>
#include <iterator>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/NetworkQuery.h"
#include "Platform/Host/Text.h"

namespace ferrox::dnssd {

BrowseSession::BrowseSession(DiscoveryContext& context, std::string type, std::string domain, Sink sink)
    : context_(context),
      type_(std::move(type)),
      domain_(std::move(domain)),
      sink_(std::move(sink)),
      watch_(
          context,
          [this](BackEnd& backEnd, BackEnd::LookupHandler handler) {
            return backEnd.browse(type_, domain_, std::move(handler));
          },
          [this] { reportSoon(); }) {}

void BrowseSession::refresh() { queryNetwork(context_, type_ + "." + domain_, {recordTypePTR}); }

void BrowseSession::close() {
  batch_.reset();
  watch_.close();
  sink_ = nullptr;
}

std::vector<Place> BrowseSession::placesOf(const std::string& name) const {
  return watch_.sightings().placesOf(name, context_.interfaces);
}

void BrowseSession::reportSoon() {
  if (batch_ || !sink_) return;
  batch_ = context_.thread.after(batchTime, [this] { report(); });
}

void BrowseSession::report() {
  batch_.reset();
  auto visible = watch_.sightings().visible(context_.interfaces);
  // Instance names are UTF-8 (RFC 6763 section 4.1.1); what is not would go wrong in every text further up.
  std::erase_if(visible, [](const std::string& name) { return !text::isValidUtf8(name); });
  BrowseChanges changes;
  std::set_difference(reported_.begin(), reported_.end(), visible.begin(), visible.end(),
                      std::back_inserter(changes.removed));
  std::set_difference(visible.begin(), visible.end(), reported_.begin(), reported_.end(),
                      std::back_inserter(changes.added));
  reported_ = std::move(visible);
  if (!changes.removed.empty() || !changes.added.empty()) sink_(std::move(changes));
}

}  // namespace ferrox::dnssd

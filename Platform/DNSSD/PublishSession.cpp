#include "Platform/DNSSD/PublishSession.h"

#include <algorithm>
#include <chrono>

#include "Platform/DNSSD/AvahiSupport.h"
#include "Platform/Log/Log.h"

namespace ferrox::dnssd {

using namespace std::chrono_literals;

namespace {

constexpr const char* errorDomain = "FRXDiscoveryErrorDomain";
// A hostile neighbour can contest every name; then go on slowly instead of flooding the network with probes.
constexpr int quickRenamings = 15;
constexpr auto longestDelay = 30s;

}  // namespace

PublishSession::PublishSession(DiscoveryContext& context, ServiceRecords records, Sinks sinks)
    : context_(context), records_(std::move(records)), sinks_(std::move(sinks)) {}

void PublishSession::setTXT(std::string rdata) {
  records_.txt = std::move(rdata);
  if (group_ && !group_->updateTXT(records_.txt)) {
    FRX_LOG_DEBUG(std::string("The TXT record could not be rewritten in place; publishing anew"));
    republish();
  }
}

void PublishSession::publishingStopped() {
  group_.reset();
  retry_.reset();
}

void PublishSession::interfacesChanged() {
  if (!group_) {
    publish();
  } else if (!context_.backEnd.coversInterfaces(*group_)) {
    republish();
  }
}

void PublishSession::close() {
  closed_ = true;
  publishingStopped();
  sinks_ = {};
}

void PublishSession::republish() {
  group_.reset();
  publish();
}

void PublishSession::publish() {
  if (closed_ || group_ || !context_.canPublish) return;
  retry_.reset();
  PublishError error = PublishError::None;
  group_ = context_.backEnd.publish(
      records_, [this](GroupEvent event) { handle(event); }, error);
  if (group_) return;
  if (error == PublishError::Collision) {
    rename();
  } else if (error == PublishError::Invalid) {
    FRX_LOG_ERROR("The service cannot be published as it is: " + Log::escaped(records_.name));
    if (sinks_.failed)
      sinks_.failed({errorDomain, 1, "The service's name, type, domain or port is not valid."});
  } else {
    retryLater();
  }
}

void PublishSession::retryLater() {
  const auto delay =
      std::min<std::chrono::seconds>(longestDelay, std::chrono::seconds(1 << std::min(failures_, 5)));
  ++failures_;
  retry_ = context_.thread.after(delay, [this] { publish(); });
}

void PublishSession::rename() {
  const std::string other = alternativeServiceName(records_.name);
  FRX_LOG_WARN("The service name " + Log::escaped(records_.name) + " is taken; trying " +
               Log::escaped(other));
  records_.name = other;
  group_.reset();
  if (++renamings_ > quickRenamings) {
    retryLater();
  } else {
    retry_ = context_.thread.after(0ms, [this] { publish(); });
  }
}

void PublishSession::handle(GroupEvent event) {
  if (event == GroupEvent::Established) {
    failures_ = 0;
    renamings_ = 0;
    if (reportedName_ == records_.name) return;
    reportedName_ = records_.name;
    if (sinks_.published) sinks_.published(reportedName_);
  } else if (event == GroupEvent::Collision) {
    rename();
  } else {
    FRX_LOG_WARN("Publication of service " + Log::escaped(records_.name) + " failed; trying again");
    group_.reset();
    retryLater();
  }
}

}  // namespace ferrox::dnssd

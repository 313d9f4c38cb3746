#include "Platform/HTTP/Server/ServicePublisher.h"

#include "Platform/Host/HostIdentity.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {

namespace {

constexpr std::size_t maxLabel = 63;  // RFC 1035 section 2.3.4

}  // namespace

struct ServicePublisher::State {
  mutable std::mutex mutex;
  std::string type;
  std::string name;
  TXTDictionary txt;
  /// Tells the callbacks of the current publication from those of an earlier one.
  std::uint64_t generation = 0;

  /// Under which the current publication is believed to be visible.
  std::string visibleName;

  void didPublish(std::uint64_t of, const std::string& asked, const std::string& finalName) {
    {
      std::lock_guard lock(mutex);
      if (of != generation || visibleName == finalName) return;
      // The host may have chosen another name meanwhile, to be published next: that one stays.
      if (name == visibleName) name = finalName;
      visibleName = finalName;
    }
    FRX_LOG_WARN("The service name \"" + asked + "\" is taken; published as \"" + finalName + "\"");
  }
};

ServicePublisher::ServicePublisher(DNSSD* discovery)
    : discovery_(discovery), state_(std::make_shared<State>()) {}

ServicePublisher::~ServicePublisher() { withdraw(); }

void ServicePublisher::setType(std::string type) {
  std::lock_guard lock(state_->mutex);
  state_->type = std::move(type);
}

void ServicePublisher::setName(std::string name) {
  std::lock_guard lock(state_->mutex);
  state_->name = std::move(name);
}

std::string ServicePublisher::name() const {
  std::lock_guard lock(state_->mutex);
  return state_->name;
}

void ServicePublisher::setTXTRecordDictionary(TXTDictionary txt) {
  std::lock_guard publicationLock(publicationMutex_);
  {
    std::lock_guard lock(state_->mutex);
    state_->txt = txt;
  }
  if (publication_) publication_->setTXTRecord(std::move(txt));
}

TXTDictionary ServicePublisher::txtRecordDictionary() const {
  std::lock_guard lock(state_->mutex);
  return state_->txt;
}

std::string ServicePublisher::fitted(const std::string& name) {
  return name.size() <= maxLabel ? name : std::string(text::prefixOfBytes(name, maxLabel));
}

PublicationRequest ServicePublisher::makeRequest(std::uint16_t port) {
  PublicationRequest request;
  std::uint64_t generation = 0;
  {
    std::lock_guard lock(state_->mutex);
    generation = ++state_->generation;
    if (state_->name.empty()) state_->name = HostIdentity::current()->computerName();
    request.name = state_->name;
    request.type = state_->type;
    request.txt = state_->txt;
  }
  if (request.name.size() > maxLabel) {
    std::string cut = fitted(request.name);
    FRX_LOG_WARN("The service name \"" + request.name + "\" exceeds " + std::to_string(maxLabel) +
                 " bytes; published as \"" + cut + "\"");
    request.name = std::move(cut);
    std::lock_guard lock(state_->mutex);
    state_->name = request.name;
  }
  {
    std::lock_guard lock(state_->mutex);
    state_->visibleName = request.name;
  }
  request.port = port;
  request.onPublished = [state = state_, generation, asked = request.name](const std::string& finalName) {
    state->didPublish(generation, asked, finalName);
  };
  request.onFailed = [asked = request.name](const FRXError& error) {
    FRX_LOG_ERROR("The service \"" + asked + "\" could not be published: " + error.localizedDescription);
  };
  return request;
}

void ServicePublisher::publish(std::uint16_t port) {
  std::lock_guard publicationLock(publicationMutex_);
  publication_.reset();
  PublicationRequest request = makeRequest(port);
  if (discovery_ == nullptr || request.type.empty()) return;
  publication_ = discovery_->publish(std::move(request));
}

void ServicePublisher::withdraw() {
  std::lock_guard publicationLock(publicationMutex_);
  {
    std::lock_guard lock(state_->mutex);
    ++state_->generation;
  }
  publication_.reset();
}

}  // namespace ferrox

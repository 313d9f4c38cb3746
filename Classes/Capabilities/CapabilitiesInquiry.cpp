#include "Classes/Capabilities/CapabilitiesInquiry.h"

#include <exception>
#include <utility>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Classes/WebSockets/FRXWebsocketMessage.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"
#include "Platform/Queues/BackgroundQueue.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox {
namespace {

constexpr const char* requestSubject = "capabilities request";

/// The GraphQL document in an answer, if there is one.
std::optional<FRXValue> documentOfAnswer(const std::string& json) {
  FRXError error;
  const auto message = FRXWebsocketMessage::fromJson(json, &error);
  if (!message || !message->message()) {
    const std::string why = error.localizedDescription.empty() ? "nil" : error.localizedDescription;
    FRX_LOG_WARN("Unable to create FRXWebsocketMessage from json: " + why);
    return std::nullopt;
  }
  auto document = FRXCapabilitiesListing::parseJSON(*message->message(), &error);
  if (!document) FRX_LOG_WARN("Error parsing message json: " + error.localizedDescription);
  return document;
}

/// Null when the document holds none.
const FRXValue* capabilitiesOf(const FRXValue& document) {
  const FRXValue* data = document.member("data");
  const FRXValue* capabilities = data == nullptr ? nullptr : data->member("capabilities");
  return capabilities == nullptr || capabilities->asObject() == nullptr ? nullptr : capabilities;
}

}  // namespace

void CapabilitiesInquiry::begin(FRXCapabilitiesListingParts parts,
                                const std::vector<std::shared_ptr<FRXNetService>>& services,
                                Clock::Duration responseTimeout,
                                FRXCapabilitiesListing::Completion completion) {
  const std::shared_ptr<CapabilitiesInquiry> inquiry(
      new CapabilitiesInquiry(std::move(parts), std::move(completion)));
  for (const auto& service : services) inquiry->peers_.push_back({service, text::randomUUID()});
  inquiry->awaited_ = inquiry->peers_.size();
  inquiry->limitTime(responseTimeout);
  for (std::size_t i = 0; i < services.size(); ++i) {
    inquiry->parts_.background->post([inquiry, i] { inquiry->ask(i); });
  }
}

CapabilitiesInquiry::CapabilitiesInquiry(FRXCapabilitiesListingParts parts,
                                         FRXCapabilitiesListing::Completion completion)
    : parts_(std::move(parts)), completion_(std::move(completion)) {}

CapabilitiesInquiry::~CapabilitiesInquiry() = default;

void CapabilitiesInquiry::limitTime(Clock::Duration responseTimeout) {
  const Clock::Instant now = parts_.mainLoop->clock().now();
  if (responseTimeout <= Clock::Duration::zero() || responseTimeout > Clock::Instant::max() - now) return;
  // The timer is the main thread's like everything else; the time counts from the call.
  parts_.mainLoop->postOrRun([self = shared_from_this(), deadline = now + responseTimeout] {
    if (self->hasEnded_) return;
    RunLoop& loop = *self->parts_.mainLoop;
    self->timer_ = Timer::scheduleOnce(loop, deadline - loop.clock().now(), [self] { self->timedOut(); });
  });
}

void CapabilitiesInquiry::ask(std::size_t index) {
  if (hasEnded_) return;
  FRXWebsocketMessage request(FRXMessageType::FRXMessageTypeQuery, requestSubject,
                              std::string(FRXCapabilitiesQuery), std::nullopt);
  request.setId(peers_[index].messageId);
  // Wherever the callbacks run, what they do is done on the main thread.
  parts_.broadcastMessage(
      request, peers_[index].service->serviceId(),
      [self = shared_from_this(), index](const std::string& json) {
        self->parts_.mainLoop->postOrRun([self, index, json] { self->answered(index, json); });
      },
      [self = shared_from_this(), index](const std::optional<FRXError>& error) {
        self->parts_.mainLoop->postOrRun([self, index, error] { self->failed(index, error); });
      });
}

void CapabilitiesInquiry::answered(std::size_t index, const std::string& json) {
  Peer& peer = peers_[index];
  if (peer.hasLeft) return;
  const auto document = documentOfAnswer(json);
  const FRXValue* capabilities = document ? capabilitiesOf(*document) : nullptr;
  if (capabilities != nullptr) take(*peer.service, *capabilities);
  leave(peer);
}

void CapabilitiesInquiry::failed(std::size_t index, const std::optional<FRXError>& error) {
  Peer& peer = peers_[index];
  if (peer.hasLeft) return;
  FRX_LOG_WARN("Error retrieving capabilities from " + peer.service->serviceId() + " - " +
               (error ? error->localizedDescription : "unknown error"));
  leave(peer);
}

void CapabilitiesInquiry::timedOut() {
  const FRXError error{"", 0, "The request timed out."};
  for (std::size_t i = 0; i < peers_.size(); ++i) {
    if (!peers_[i].hasLeft && parts_.forgetReply) parts_.forgetReply(peers_[i].messageId);
    failed(i, error);
  }
}

void CapabilitiesInquiry::take(const FRXNetService& service, const FRXValue& capabilities) {
  const std::string host = service.hostName().value_or(std::string());
  result_[std::string(FRXCapabilityNameStreaming)].insert_or_assign(
      service.serviceId(), FRXCapabilitiesListing::getStreamsFromData(capabilities, host));
  result_[std::string(FRXCapabilityNameProjectSharing)].insert_or_assign(
      service.serviceId(), FRXCapabilitiesListing::getProjectsFromData(capabilities, host));
}

void CapabilitiesInquiry::leave(Peer& peer) {
  peer.hasLeft = true;
  if (--awaited_ == 0) end();
}

void CapabilitiesInquiry::end() {
  hasEnded_ = true;
  timer_.reset();
  complete(std::exchange(completion_, nullptr), result_);
}

void CapabilitiesInquiry::complete(const FRXCapabilitiesListing::Completion& completion,
                                   const FRXCapabilitiesListing::Result& result) {
  if (!completion) return;
  try {
    completion(result);
  } catch (const std::exception& failure) {
    FRX_LOG_ERROR(std::string("The completion of a capabilities listing failed: ") + failure.what());
  } catch (...) {
    FRX_LOG_ERROR("The completion of a capabilities listing failed");
  }
}

}  // namespace ferrox

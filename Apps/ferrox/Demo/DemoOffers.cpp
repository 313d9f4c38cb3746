#include "Apps/ferrox/Demo/DemoOffers.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>
#include <utility>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/Host/Text.h"
#include "Platform/PlatformServices.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr const char* streamName = "Angle A";
constexpr const char* projectName = "Rushes";
constexpr const char* segmentFile = "segment-1.ts";
constexpr std::size_t segmentSize = std::size_t{1} << 20;

/// What a client's callback thread leaves for the stage's.
struct Answer {
  std::string body;
  int status = 0;
  DemoStage::Instant arrival;
  std::atomic<bool> isComplete{false};
};

}  // namespace

bool DemoOffers::makeFiles() {
  if (!folder_.make()) return false;
  segment_.clear();
  while (segment_.size() < segmentSize) segment_ += text::randomUUID();
  std::ofstream(folder_.path() / segmentFile, std::ios::binary) << segment_;
  std::ofstream(folder_.path() / "live.m3u8") << "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n"
                                              << segmentFile << "\n";
  std::error_code error;
  return std::filesystem::file_size(folder_.path() / segmentFile, error) == segment_.size();
}

StepOutcome DemoOffers::advertise(DemoRole& from, const DemoRole& to) {
  const Instant cause = now();
  if (!makeFiles()) return {false, between(cause, now()), "there is no room for temporary files"};
  from.node->send({{"cmd", "addStream"},
                   {"id", "angle-a"},
                   {"name", streamName},
                   {"contentType", FRXContentTypeVideoAngle},
                   {"path", folder_.path().string()},
                   {"broadcast", true}});
  from.node->send({{"cmd", "addProject"},
                   {"id", "rushes"},
                   {"name", projectName},
                   {"path", folder_.path().string()},
                   {"broadcast", true}});
  return stage_.expectAll(
      {{"the stream", [&] { return broadcast(to, FRXStreamingCapabilityNotification, "streams", cause); }},
       {"the project",
        [&] { return broadcast(to, FRXProjectSharingCapabilityNotification, "projects", cause); }}},
      cause, 5s,
      fmt::format("{} offers a stream and a project, {} was told", from.computerName, to.computerName));
}

// Broadcasts also follow new connections, of those that have nothing yet.
const ChildEvent* DemoOffers::broadcast(const DemoRole& to, std::string_view name, std::string_view member,
                                        Instant since) {
  return DemoStage::find(to, "notification", since, [&](const FRXValue& members) {
    const FRXValue* told = members.member("name");
    const FRXValue* userInfo = members.member("userInfo");
    const FRXValue* offers = userInfo == nullptr ? nullptr : userInfo->member(member);
    return told != nullptr && *told == FRXValue(name) && offers != nullptr && offers->asArray() != nullptr &&
           !offers->asArray()->empty();
  });
}

StepOutcome DemoOffers::list(DemoRole& asking, const DemoRole& offering) {
  const Instant cause = now();
  asking.node->send({{"cmd", "list"}});
  const auto answered = [&] { return DemoStage::find(asking, "capabilities", cause); };
  if (!stage_.waitUntil([&] { return answered() != nullptr; }, 15s)) {
    return {false, between(cause, now()), asking.computerName + " got no answers"};
  }
  streamURL_ = urlIn(*answered(), FRXCapabilityNameStreaming, streamName, offering);
  const std::string project = urlIn(*answered(), FRXCapabilityNameProjectSharing, projectName, offering);
  const bool complete = streamURL_.ends_with("/streams/angle-a") && project.ends_with("/projects/rushes");
  return {complete, between(cause, answered()->arrival),
          complete ? fmt::format("GraphQL over the connections: {}", streamURL_)
                   : asking.computerName + " was not told of both"};
}

std::string DemoOffers::urlIn(const ChildEvent& event, std::string_view capability, std::string_view name,
                              const DemoRole& offering) {
  const FRXValue* result = event.members.member("result");
  const FRXValue* services = result == nullptr ? nullptr : result->member(capability);
  if (services == nullptr || services->asObject() == nullptr) return {};
  for (const auto& [serviceId, offers] : *services->asObject()) {
    if (!serviceId.ends_with(fmt::format(":{}", offering.port)) || offers.asArray() == nullptr) continue;
    for (const FRXValue& offer : *offers.asArray()) {
      const FRXValue* offered = offer.member("name");
      const FRXValue* url = offer.member("url");
      if (offered != nullptr && *offered == FRXValue(name) && url != nullptr && url->asText() != nullptr) {
        return *url->asText();
      }
    }
  }
  return {};
}

// All nodes are on this machine, which may be unable to look their host name up.
StepOutcome DemoOffers::fetchSegment(const DemoRole& offering) {
  const std::size_t path = streamURL_.find("/streams/");
  const auto answer = std::make_shared<Answer>();
  HTTPClientRequest request;
  request.url = fmt::format("http://127.0.0.1:{}{}/{}", offering.port, streamURL_.substr(path), segmentFile);
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [answer](const std::optional<FRXError>&, const HTTPClientResponse& response) {
    answer->arrival = now();
    answer->status = response.status;
    answer->body = response.body;
    answer->isComplete = true;
  };
  const Instant cause = now();
  PlatformServices::shared().httpClient->send(std::move(request), std::move(callbacks));
  if (!stage_.waitUntil([&] { return answer->isComplete.load(); }, 10s)) {
    return {false, between(cause, now()), "no answer from " + offering.computerName};
  }
  const bool same = answer->status == 200 && answer->body == segment_;
  return {same, between(cause, answer->arrival),
          same ? fmt::format("GET .../{}, {} KiB, byte for byte", segmentFile, segment_.size() / 1024)
               : fmt::format("{} answered {} with other bytes", offering.computerName, answer->status)};
}

}  // namespace ferrox::command

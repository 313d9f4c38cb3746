#include "Classes/Capabilities/FRXCapabilitiesListing.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Classes/Capabilities/CapabilitiesInquiry.h"
#include "Classes/Capabilities/PeerURLs.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/Utilities/PercentCoding.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/Base/Json.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"
#include "Platform/PlatformServices.h"

namespace ferrox {
namespace {

/// Nobody means these in an id, and not every player keeps them escaped.
bool holdsControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

/// Collects what makes a URL, and what does not, for one line of log however long a hostile answer is.
class AccessorCollector {
 public:
  explicit AccessorCollector(const std::string& hostName) : hostName_(hostName), urls_(hostName) {}

  enum class Path { AsItIs, EscapedIfNeeded };

  void add(const std::string& name, const FRXValue* port, const std::string& path, Path kind) {
    const auto portText = portOfPeer(port);
    auto url = portText ? urls_.url(*portText, path) : std::nullopt;
    if (!url && portText && kind == Path::EscapedIfNeeded && !holdsControlCharacter(path)) {
      url = urls_.url(*portText, percentEncoded(path, PercentSet::Path));
    }
    if (url) {
      accessors_.emplace_back(name, std::move(*url));
    } else if (leftOut_++ == 0) {
      constexpr std::size_t enoughBytes = 200;
      firstLeftOut_ = text::prefixOfBytes(path, enoughBytes);
    }
  }

  FRXCapabilitiesListing::Accessors finish(const char* kind) {
    if (leftOut_ > 0) {
      FRX_LOG_WARN("Left out " + std::to_string(leftOut_) + " " + kind + " of " + Log::escaped(hostName_) +
                   " that make no URL, the first with the path " + Log::escaped(firstLeftOut_));
    }
    return std::move(accessors_);
  }

 private:
  const std::string& hostName_;
  const PeerURLs urls_;
  FRXCapabilitiesListing::Accessors accessors_;
  std::size_t leftOut_ = 0;
  std::string firstLeftOut_;
};

/// The elements of a member that is an array; none otherwise.
const FRXArray& elements(const FRXValue& object, std::string_view member) {
  static const FRXArray none;
  const FRXValue* value = object.member(member);
  const FRXArray* array = value == nullptr ? nullptr : value->asArray();
  return array == nullptr ? none : *array;
}

const std::string* textMember(const FRXValue& object, std::string_view member) {
  const FRXValue* value = object.member(member);
  return value == nullptr ? nullptr : value->asText();
}

}  // namespace

FRXCapabilitiesListingParts FRXCapabilitiesListingParts::usual() {
  const PlatformServices& services = PlatformServices::shared();
  return {
      .mainLoop = services.mainLoop,
      .background = services.background,
      .currentServices = [] { return FRXBrowser::sharedInstance()->currentServices(); },
      .broadcastMessage =
          [](const FRXWebsocketMessage& message, const std::string& toService, ResponseCallback onResponse,
             const ErrorCallback& onError) {
            FRXWebsocketConnectionManager::sharedManager()->broadcastMessage(message, toService,
                                                                             std::move(onResponse), onError);
          },
      .forgetReply =
          [](const std::string& messageId) {
            FRXWebsocketConnectionManager::sharedManager()->forgetReply(messageId);
          },
  };
}

FRXCapabilitiesListing::FRXCapabilitiesListing()
    : FRXCapabilitiesListing(FRXCapabilitiesListingParts::usual()) {}

FRXCapabilitiesListing::FRXCapabilitiesListing(FRXCapabilitiesListingParts parts)
    : parts_(std::move(parts)) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void FRXCapabilitiesListing::listCapabilities(Completion completion, FailureCallback /*never called*/) const {
  auto services = parts_.currentServices();
  std::erase(services, nullptr);
  if (services.empty()) return CapabilitiesInquiry::complete(completion, {});
  CapabilitiesInquiry::begin(parts_, services, responseTimeout(), std::move(completion));
}

FRXCapabilitiesListing::Accessors FRXCapabilitiesListing::getStreamsFromData(const FRXValue& data,
                                                                             const std::string& withAddress) {
  AccessorCollector streams(withAddress);
  for (const FRXValue& element : elements(data, FRXCapabilityNameStreaming)) {
    const std::string* name = textMember(element, "name");
    const std::string* path = textMember(element, "path");
    const FRXValue* port = element.member("port");
    if (name == nullptr || path == nullptr || port == nullptr || port->isNull()) continue;
    streams.add(*name, port, *path, AccessorCollector::Path::AsItIs);
  }
  return streams.finish("streams");
}

FRXCapabilitiesListing::Accessors FRXCapabilitiesListing::getProjectsFromData(
    const FRXValue& data, const std::string& withAddress) {
  AccessorCollector projects(withAddress);
  for (const FRXValue& element : elements(data, FRXCapabilityNameProjectSharing)) {
    const std::string* name = textMember(element, "name");
    const std::string* id = textMember(element, "id");
    if (name == nullptr || name->empty() || id == nullptr || id->empty()) continue;
    projects.add(*name, element.member("port"), "/projects/" + *id, AccessorCollector::Path::EscapedIfNeeded);
  }
  return projects.finish("projects");
}

std::optional<FRXValue> FRXCapabilitiesListing::parseJSON(std::string_view data, FRXError* error) {
  FRXError problem;
  auto value = parseJson(data, &problem);
  if (value) return value;
  FRX_LOG_WARN("An error was returned on JSON deserialization: " + problem.localizedDescription);
  setError(error, std::move(problem));
  return std::nullopt;
}

}  // namespace ferrox

#include "Classes/GraphQL/FRXQueryType.h"

#include <utility>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"

namespace ferrox {
namespace {

GraphQLValue portValue(std::uint16_t port) { return std::int64_t{port}; }

template <typename Source>
GraphQLValue listValue(const std::optional<std::vector<std::shared_ptr<const Source>>>& sources) {
  if (!sources) return {};
  GraphQLList list;
  list.reserve(sources->size());
  for (const auto& source : *sources) list.emplace_back(source);
  return list;
}

auto streamingSources(const FRXStreamingCapability& capability) {
  std::vector<std::shared_ptr<const GQLStreamingSourceType>> sources;
  for (const auto& [key, stream] : capability.availableStreams()) {
    auto description = stream->description();
    if (!description) continue;
    const auto source = std::make_shared<GQLStreamingSourceType>();
    source->name = std::move(description->name);
    source->path = std::move(description->path);
    source->contentType =
        description->contentType == FRXContentTypeVideoAngle ? "VIDEO_ANGLE" : "MOMENTS_DATA";
    source->port = description->port;
    sources.push_back(source);
  }
  return sources;
}

auto projectSharingSources(const FRXProjectSharingCapability& capability) {
  std::vector<std::shared_ptr<const GQLProjectSharingSourceType>> sources;
  for (const auto& [id, project] : capability.availableProjects()) {
    auto description = project->description();
    if (!description) continue;
    const auto source = std::make_shared<GQLProjectSharingSourceType>();
    source->name = std::move(description->name);
    source->id = std::move(description->id);
    source->port = description->port;
    sources.push_back(source);
  }
  return sources;
}

}  // namespace

GraphQLValue GQLStreamingSourceType::property(std::string_view property, const FRXDictionary&) const {
  if (property == "name") return name;
  if (property == "path") return path;
  if (property == "contentType") return contentType;
  if (property == "port") return portValue(port);
  return {};
}

GraphQLValue GQLProjectSharingSourceType::property(std::string_view property, const FRXDictionary&) const {
  if (property == "name") return name;
  if (property == "id") return id;
  if (property == "port") return portValue(port);
  return {};
}

GraphQLValue GQLCapabilitiesType::property(std::string_view property, const FRXDictionary&) const {
  if (property == "streaming") return listValue(streaming);
  if (property == "projectsharing") return listValue(projectsharing);
  return {};
}

GraphQLValue GQLQueryType::property(std::string_view property, const FRXDictionary&) const {
  if (property == "capabilities") return capabilities();
  return {};
}

std::shared_ptr<const GQLCapabilitiesType> GQLQueryType::capabilities() const {
  auto made = std::make_shared<GQLCapabilitiesType>();
  const auto delegate = RoutingHTTPConnection::capabilitiesDelegate();
  if (!delegate) return made;
  for (const auto& [name, capability] : delegate->capabilities()) {
    // A host may have put something of its own under these names.
    if (name == FRXCapabilityNameStreaming) {
      const auto streams = std::dynamic_pointer_cast<FRXStreamingCapability>(capability);
      if (streams) made->streaming = streamingSources(*streams);
    } else if (name == FRXCapabilityNameProjectSharing) {
      const auto projects = std::dynamic_pointer_cast<FRXProjectSharingCapability>(capability);
      if (projects) made->projectsharing = projectSharingSources(*projects);
    }
  }
  return made;
}

}  // namespace ferrox

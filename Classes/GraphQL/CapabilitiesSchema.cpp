#include "Classes/GraphQL/CapabilitiesSchema.h"

#include <optional>
#include <string>

#include "Classes/GraphQL/FRXCapabilitiesQuery.h"
#include "Classes/GraphQL/FRXQueryType.h"
#include "Platform/FileSystem/ResourceBundle.h"
#include "Platform/GraphQLEngine/GraphQLEngine.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

/// Stands for an instance that offers one of each, so that every field and value is resolved.
class SampleQuery final : public GraphQLObject {
 public:
  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view, const FRXDictionary&) const override {
    const auto camera = std::make_shared<GQLStreamingSourceType>();
    camera->contentType = "VIDEO_ANGLE";
    const auto moments = std::make_shared<GQLStreamingSourceType>();
    moments->contentType = "MOMENTS_DATA";
    const auto capabilities = std::make_shared<GQLCapabilitiesType>();
    capabilities->streaming = {{camera, moments}};
    capabilities->projectsharing = {{std::make_shared<GQLProjectSharingSourceType>()}};
    return capabilities;
  }
};

/// What is wrong with a schema; nothing when it answers what peers ask.
std::optional<std::string> problemOfSchema(const std::string& sdl) {
  std::optional<std::string> problem;
  const auto engine = GraphQLEngine::engineWithSchema(sdl, [&problem](const FRXError& error) {
    if (!problem) problem = error.localizedDescription;
  });
  engine->executeQuery(FRXCapabilitiesQuery, SampleQuery(), [](const std::string&) {});
  return problem;
}

}  // namespace

std::shared_ptr<const GraphQLEngine> capabilitiesEngine(const ResourceBundle* bundle) {
  constexpr const char* name = "Schema";
  constexpr const char* type = "graphql";
  const auto ignoreErrors = [](const FRXError&) {};
  if (bundle != nullptr && bundle->has(name, type)) {
    const auto sdl = bundle->text(name, type);
    const auto problem = sdl ? problemOfSchema(*sdl) : "it is no text";
    if (!problem) return GraphQLEngine::engineWithSchema(*sdl, ignoreErrors);
    FRX_LOG_WARN("The schema in " + bundle->folder().string() +
                 " cannot be used, the built-in one is: " + *problem);
  }
  return GraphQLEngine::engineWithSchema(compiledCapabilitiesSchema(), ignoreErrors);
}

const std::shared_ptr<const GraphQLEngine>& sharedCapabilitiesEngine() {
  // Never destroyed: network threads may still answer while the process ends.
  static const auto& engine = *new std::shared_ptr<const GraphQLEngine>([] {
    const auto bundle = ResourceBundle::named("GraphQL", "bundle");
    return capabilitiesEngine(bundle ? &*bundle : nullptr);
  }());
  return engine;
}

}  // namespace ferrox

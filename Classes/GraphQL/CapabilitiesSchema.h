// The schema that peers' queries are answered against.
#pragma once

#include <memory>
#include <string_view>

namespace ferrox {

class GraphQLEngine;
class ResourceBundle;

/// The schema as it was when the library was built, for where its resources are missing. Thread: any
std::string_view compiledCapabilitiesSchema();

/// An engine for "Schema.graphql" of the bundle, if that can answer the capabilities query; else, logged when
/// there is such a file, for the compiled-in text. A null bundle holds nothing. Thread: any; reads the disk
std::shared_ptr<const GraphQLEngine> capabilitiesEngine(const ResourceBundle* bundle);

/// The engine for the library's own bundle, made on first use and shared by the whole process. Thread: any
const std::shared_ptr<const GraphQLEngine>& sharedCapabilitiesEngine();

}  // namespace ferrox

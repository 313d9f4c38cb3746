// The objects that answer the fields of the schema, one class for each of its types.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Base/Export.h"
#include "Platform/GraphQLEngine/GraphQLObject.h"

namespace ferrox {

/// A live stream that this instance offers. A value.
class FRX_EXPORT GQLStreamingSourceType final : public GraphQLObject {
 public:
  std::string name;
  std::string path;
  /// "VIDEO_ANGLE" or "MOMENTS_DATA".
  std::string contentType;
  std::uint16_t port = 0;

  std::string_view typeName() const override { return "StreamingSource"; }
  GraphQLValue property(std::string_view property, const FRXDictionary& arguments) const override;
};

/// A project that peers may copy. A value.
class FRX_EXPORT GQLProjectSharingSourceType final : public GraphQLObject {
 public:
  std::string name;
  std::string id;
  std::uint16_t port = 0;

  std::string_view typeName() const override { return "ProjectSharingSource"; }
  GraphQLValue property(std::string_view property, const FRXDictionary& arguments) const override;
};

/// What this instance offers, by kind; a kind that it does not offer at all is absent. A value.
class FRX_EXPORT GQLCapabilitiesType final : public GraphQLObject {
 public:
  std::optional<std::vector<std::shared_ptr<const GQLStreamingSourceType>>> streaming;
  std::optional<std::vector<std::shared_ptr<const GQLProjectSharingSourceType>>> projectsharing;

  std::string_view typeName() const override { return "Capabilities"; }
  GraphQLValue property(std::string_view property, const FRXDictionary& arguments) const override;
};

/// The root of every query.
/// Thread: any
class FRX_EXPORT GQLQueryType final : public GraphQLObject {
 public:
  /// Made anew of what the routing layer's capabilities delegate, usually the shared server, offers at this
  /// moment. An offer that was made incomplete after it was added is left out.
  std::shared_ptr<const GQLCapabilitiesType> capabilities() const;

  std::string_view typeName() const override { return "Query"; }
  GraphQLValue property(std::string_view property, const FRXDictionary& arguments) const override;
};

}  // namespace ferrox

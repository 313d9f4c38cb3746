#include "Apps/ferrox/Node/NodeOffers.h"

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Platform/Log/Log.h"

namespace ferrox::command {

NodeOffers::NodeOffers(FRXServer& server)
    : streams_(std::make_shared<FRXStreamingCapability>()),
      projects_(std::make_shared<FRXProjectSharingCapability>()) {
  server.addCapability(projects_);
  server.addCapability(streams_);
}

void NodeOffers::addAll(const Offers& offers) {
  std::string problem;
  for (const Offer& project : offers.projects) {
    if (!addProject({project}, false, problem)) FRX_LOG_ERROR("Cannot share " + project.id + ": " + problem);
  }
  const auto addStreams = [&](const std::vector<Offer>& streams, std::string_view contentType) {
    for (const Offer& stream : streams) {
      if (!addStream({stream, std::string(contentType), {}, 0}, false, problem)) {
        FRX_LOG_ERROR("Cannot offer " + stream.id + ": " + problem);
      }
    }
  };
  addStreams(offers.streams, FRXContentTypeVideoAngle);
  addStreams(offers.moments, FRXContentTypeMomentsData);
}

std::optional<std::string> NodeOffers::addStream(const StreamOffer& offered, bool broadcast,
                                                 std::string& problem) {
  const auto stream = std::make_shared<FRXStream>();
  stream->setId(offered.offer.id);
  stream->setName(offered.offer.name);
  stream->setContentType(offered.contentType);
  stream->setFileSystemPath(offered.offer.fileURL());
  stream->setPort(offered.port);
  if (offered.servedPath) stream->setServedPath(offered.servedPath);
  const auto key = stream->key();
  if (!key) return problem = "its served path cannot be a part of a URL", std::nullopt;
  if (streams_->streamForServedPath(*key)) return problem = "a stream is served there already", std::nullopt;
  if (!streams_->addStream(stream, broadcast)) return problem = "it is not complete", std::nullopt;
  return key;
}

bool NodeOffers::removeStream(const std::string& key, bool broadcast) {
  return streams_->removeStreamWithServedPath(key, broadcast);
}

bool NodeOffers::addProject(const ProjectOffer& offered, bool broadcast, std::string& problem) {
  const auto project = std::make_shared<FRXProject>();
  project->setId(offered.offer.id);
  project->setName(offered.offer.name);
  project->setFileSystemPath(offered.offer.fileURL());
  project->setPort(offered.port);
  if (projects_->projectWithId(offered.offer.id)) return problem = "a project has that id already", false;
  if (!projects_->addProject(project, broadcast)) return problem = "it is not complete", false;
  return true;
}

bool NodeOffers::removeProject(const std::string& id, bool broadcast) {
  return projects_->removeProjectWithId(id, broadcast);
}

}  // namespace ferrox::command

// Something that offers, for as long as a test needs it, without a server.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"

namespace ferrox::test {

/// Stands for the shared server at the routing layer.
class OfferingHost {
 protected:
  OfferingHost() { RoutingHTTPConnection::setCapabilitiesDelegate(table_); }
  ~OfferingHost() { RoutingHTTPConnection::forgetDelegates(); }

  void addCapability(const std::shared_ptr<FRXCapability>& capability) { table_->add(capability); }
  void offerStreams() { addCapability(streaming_); }
  void offerProjects() { addCapability(sharing_); }
  void forgetCapabilities() { table_->clear(); }
  FRXStreamingCapability& streaming() { return *streaming_; }

  std::shared_ptr<FRXStream> addStream(const std::string& id, std::string contentType,
                                       std::uint16_t port = 16654) {
    offerStreams();
    auto stream = std::make_shared<FRXStream>();
    stream->setId(id);
    stream->setName("Stream " + id);
    stream->setContentType(std::move(contentType));
    stream->setPort(port);
    streaming_->addStream(stream);
    return stream;
  }
  std::shared_ptr<FRXProject> addProject(const std::string& id, std::uint16_t port = 16654) {
    offerProjects();
    auto project = std::make_shared<FRXProject>();
    project->setId(id);
    project->setName("Project " + id);
    project->setPort(port);
    EXPECT_TRUE(sharing_->addProject(project));
    return project;
  }

 private:
  class Table : public ListCapabilitiesDelegate {
   public:
    FRXCapabilities capabilities() const override {
      const std::lock_guard lock(mutex_);
      return capabilities_;
    }
    void add(const std::shared_ptr<FRXCapability>& capability) {
      const std::lock_guard lock(mutex_);
      capabilities_.emplace(capability->name(), capability);
    }
    void clear() {
      const std::lock_guard lock(mutex_);
      capabilities_.clear();
    }

   private:
    mutable std::mutex mutex_;
    FRXCapabilities capabilities_;
  };

  const std::shared_ptr<Table> table_ = std::make_shared<Table>();
  const std::shared_ptr<FRXStreamingCapability> streaming_ = std::make_shared<FRXStreamingCapability>();
  const std::shared_ptr<FRXProjectSharingCapability> sharing_ =
      std::make_shared<FRXProjectSharingCapability>();
};

}  // namespace ferrox::test

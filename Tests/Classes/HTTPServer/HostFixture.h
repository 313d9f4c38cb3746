// A running host of capabilities on a free port, and a client that speaks to it in plain bytes.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/PlatformServices.h"
#include "Tests/Support/FakeDNSSD.h"
#include "Tests/Support/ManualClock.h"
#include "Tests/Support/RawSocket.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace ferrox::test {

/// Remembers who connected, and answers with the record that the test sets.
class RecordingConnectionDelegate : public ConnectionRequestDelegate {
 public:
  void monitorService(std::shared_ptr<FRXNetService> service) override {
    const std::lock_guard lock(mutex_);
    monitored_.push_back(std::move(service));
  }
  std::shared_ptr<FRXNetService> localFRXService() const override {
    const std::lock_guard lock(mutex_);
    return local_;
  }
  void setLocal(std::shared_ptr<FRXNetService> service) {
    const std::lock_guard lock(mutex_);
    local_ = std::move(service);
  }
  std::vector<std::shared_ptr<FRXNetService>> monitored() const {
    const std::lock_guard lock(mutex_);
    return monitored_;
  }

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<FRXNetService> local_;
  std::vector<std::shared_ptr<FRXNetService>> monitored_;
};

class HostFixture : public testing::Test {
 protected:
  HostFixture() { FRXServer::setSharedInstance(server_); }
  ~HostFixture() override {
    server_->stop();
    FRXServer::setSharedInstance(nullptr);
    RoutingHTTPConnection::forgetDelegates();
    RoutingHTTPConnection::setWebSocketFactory(nullptr);
  }

  void start() {
    FRXError error;
    ASSERT_TRUE(server_->start(&error)) << error.localizedDescription;
  }

  RawResponse request(const std::string& method, const std::string& target, const std::string& fields = {}) {
    RawSocket socket(server_->port());
    EXPECT_TRUE(socket.send(method + " " + target + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n" +
                            fields + "\r\n"));
    const auto response = socket.readResponse(method == "HEAD");
    EXPECT_TRUE(response) << method << " " << target;
    return response.value_or(RawResponse{});
  }
  RawResponse get(const std::string& target, const std::string& fields = {}) {
    return request("GET", target, fields);
  }
  RawResponse head(const std::string& target, const std::string& fields = {}) {
    return request("HEAD", target, fields);
  }

  void shareProject(const std::string& id, const std::string& fileSystemPath) {
    auto project = std::make_shared<FRXProject>();
    project->setId(id);
    project->setName("Project");
    project->setFileSystemPath(fileSystemPath);
    ASSERT_TRUE(sharing_->addProject(project));
    server_->addCapability(sharing_);
  }
  void offerStream(const std::string& id, const std::string& fileSystemPath) {
    auto stream = std::make_shared<FRXStream>();
    stream->setId(id);
    stream->setName("Stream");
    stream->setContentType(std::string(FRXContentTypeVideoAngle));
    stream->setFileSystemPath(fileSystemPath);
    ASSERT_TRUE(streaming_->addStream(stream));
    server_->addCapability(streaming_);
  }

  PlatformServices services() {
    PlatformServices services;
    services.mainLoop = &loop_;
    services.discovery = &discovery_;
    return services;
  }

  ManualClock clock_;
  RunLoop loop_{clock_};
  FakeDNSSD discovery_{loop_};
  const std::shared_ptr<FRXServer> server_ = std::make_shared<FRXServer>(services());
  const std::shared_ptr<HTTPServer> httpServer_ = server_->httpServer();
  const std::shared_ptr<FRXStreamingCapability> streaming_ = std::make_shared<FRXStreamingCapability>();
  const std::shared_ptr<FRXProjectSharingCapability> sharing_ =
      std::make_shared<FRXProjectSharingCapability>();
  const std::shared_ptr<RecordingConnectionDelegate> connectionDelegate_ =
      std::make_shared<RecordingConnectionDelegate>();
};

}  // namespace ferrox::test

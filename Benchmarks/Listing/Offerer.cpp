// The peers' side of the listing benchmark: a server with streams and projects, until its input ends.
//   ferrox_bench_listing_offerer STREAMS PROJECTS          prints its port
#include <cstdint>
#include <iostream>
#include <memory>
#include <string>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Classes/WebSockets/FRXWebsocket.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/RunLoop/RunLoop.h"

namespace {

using namespace ferrox;

class Offers : public ListCapabilitiesDelegate {
 public:
  Offers(int streams, int projects, std::uint16_t port) {
    const auto streaming = std::make_shared<FRXStreamingCapability>();
    for (int i = 0; i < streams; ++i) {
      auto stream = std::make_shared<FRXStream>();
      stream->setId("camera " + std::to_string(i));
      stream->setName("Camera " + std::to_string(i) + " at the goal line");
      stream->setContentType(std::string(FRXContentTypeVideoAngle));
      stream->setPort(port);
      streaming->addStream(stream);
    }
    const auto sharing = std::make_shared<FRXProjectSharingCapability>();
    for (int i = 0; i < projects; ++i) {
      auto project = std::make_shared<FRXProject>();
      project->setId("PROJECT-" + std::to_string(i));
      project->setName("Project " + std::to_string(i) + " of the season");
      project->setPort(port);
      sharing->addProject(project);
    }
    capabilities_ = {{streaming->name(), streaming}, {sharing->name(), sharing}};
  }
  FRXCapabilities capabilities() const override { return capabilities_; }

 private:
  FRXCapabilities capabilities_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  RunLoop& loop = RunLoop::main();
  loop.startThread();
  FRXWebsocket::acceptUpgrades(loop);
  HTTPServer server(nullptr);
  server.setConnectionClass([] { return std::make_unique<RoutingHTTPConnection>(); });
  if (!server.start()) return 1;
  RoutingHTTPConnection::setCapabilitiesDelegate(
      std::make_shared<Offers>(std::stoi(argv[1]), std::stoi(argv[2]), server.port()));
  std::cout << server.port() << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
  }
  server.stop();
  loop.stopThread();
  RoutingHTTPConnection::forgetDelegates();
}

// A server with the library's own routes, to be measured from outside: "/service" and one shared project.
//   ferrox_bench_httpserver FOLDER     prints its port, serves /projects/P/files/NAME of FOLDER until killed

#include <csignal>
#include <cstdio>
#include <memory>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Platform/HTTP/Server/HTTPServer.h"

namespace {

using namespace ferrox;

class Offers : public ListCapabilitiesDelegate, public ConnectionRequestDelegate {
 public:
  explicit Offers(const std::string& folder) {
    auto project = std::make_shared<FRXProject>();
    project->setId("P");
    project->setName("Bench");
    project->setFileSystemPath("file://" + folder);
    sharing_->addProject(project);
  }
  FRXCapabilities capabilities() const override {
    return {{std::string(FRXCapabilityNameProjectSharing), sharing_}};
  }
  void monitorService(std::shared_ptr<FRXNetService>) override {}
  std::shared_ptr<FRXNetService> localFRXService() const override { return service_; }

 private:
  std::shared_ptr<FRXProjectSharingCapability> sharing_ = std::make_shared<FRXProjectSharingCapability>();
  std::shared_ptr<FRXNetService> service_ = std::make_shared<FRXNetService>(
      "EDIT-SUITE-3.LOCAL.", 16654, "0123456789ABCDEF0123456789ABCDEF-AAAAAAAA/EDIT SUITE 3");
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto offers = std::make_shared<Offers>(argv[1]);
  RoutingHTTPConnection::setCapabilitiesDelegate(offers);
  RoutingHTTPConnection::setConnectionRequestDelegate(offers);
  HTTPServer server(nullptr);
  server.setConnectionClass([] { return std::make_unique<RoutingHTTPConnection>(); });
  FRXError error;
  if (!server.start(&error)) {
    std::fprintf(stderr, "%s\n", error.localizedDescription.c_str());
    return 1;
  }
  std::printf("%d\n", server.port());
  std::fflush(stdout);
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  int caught = 0;
  sigwait(&signals, &caught);
  server.stop();
  return 0;
}

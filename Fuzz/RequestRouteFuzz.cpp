// The target of a request: which route it takes, and that no answer holds what is not shared. The first byte
// of an input chooses the method.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/HTTPServer/RoutingHTTPConnection.h"
#include "Fuzz/FuzzSupport.h"
#include "Platform/HTTP/Server/HTTPRequest.h"
#include "Platform/Log/Log.h"
#include "Platform/WebSocket/WebSocket.h"

namespace {

namespace fs = std::filesystem;
using namespace ferrox;

constexpr std::string_view secret = "NOT SHARED WITH ANYBODY";
// Short, so that inputs that are made at random do name it.
constexpr const char* secretName = "s";

/// Refusals are logged, and here nearly every input is refused.
class Silence : public LogSink {
 public:
  void write(const LogEntry&) override {}
  void writeAudit(const AuditEntry&) override {}
};

class NoTransport : public WebSocketTransport {
 public:
  bool sendText(std::string) override { return true; }
  void close(std::uint16_t, std::string) override {}
  void setReading(bool) override {}
  std::string connectedHost() const override { return "127.0.0.1"; }
  std::uint16_t localPort() const override { return 16654; }
};

class Offers : public ListCapabilitiesDelegate {
 public:
  explicit Offers(const fs::path& folder) {
    auto project = std::make_shared<FRXProject>();
    project->setId("P");
    project->setName("P");
    project->setFileSystemPath("file://" + folder.string());
    auto stream = std::make_shared<FRXStream>();
    stream->setId("S");
    stream->setName("S");
    stream->setContentType("video-angle");
    stream->setFileSystemPath("file://" + folder.string());
    FUZZ_REQUIRE(projects_->addProject(project) && streams_->addStream(stream));
  }
  FRXCapabilities capabilities() const override {
    return {{projects_->name(), projects_}, {streams_->name(), streams_}};
  }

 private:
  std::shared_ptr<FRXProjectSharingCapability> projects_ = std::make_shared<FRXProjectSharingCapability>();
  std::shared_ptr<FRXStreamingCapability> streams_ = std::make_shared<FRXStreamingCapability>();
};

fs::path disk;

void removeDisk() {
  std::error_code ignored;
  fs::remove_all(disk, ignored);
}

void judge(std::unique_ptr<HTTPResponse> response) {
  if (const auto* deferred = dynamic_cast<const HTTPDeferredResponse*>(response.get())) {
    response = deferred->make();
  }
  FUZZ_REQUIRE(response != nullptr);
  constexpr std::array statuses{200, 204, 400, 404, 406, 500};
  FUZZ_REQUIRE(std::find(statuses.begin(), statuses.end(), response->status()) != statuses.end());
  const std::string* inMemory = response->contiguousBody();
  const std::string body = inMemory != nullptr ? *inMemory : response->readDataOfLength(4096);
  FUZZ_REQUIRE(body.find(secret) == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Log::setSink(std::make_shared<Silence>());
  disk = fs::temp_directory_path() / ("ferrox-fuzz-" + std::to_string(::getpid()));
  fs::create_directories(disk / "shared/d");
  std::ofstream(disk / secretName) << secret;
  std::ofstream(disk / "shared/f") << "shared";
  std::ofstream(disk / "shared/d/g") << "shared below";
  std::atexit(removeDisk);
  RoutingHTTPConnection::setCapabilitiesDelegate(std::make_shared<Offers>(disk / "shared"));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::array<std::string_view, 4> methods{"GET", "HEAD", "POST", ""};
  if (size == 0) return 0;
  const std::string_view method = methods[data[0] % methods.size()];
  const std::string_view target = fuzz::asText(data + 1, size - 1);

  RoutingHTTPConnection connection;
  const RouteName route = connection.getRoute(method, target);
  const bool isSupported = connection.supportsMethod(method, target);
  FUZZ_REQUIRE(isSupported == (route != RouteName::RouteNameNotFound));
  FUZZ_REQUIRE(!isSupported || connection.allowedMethods(target).find(method) != std::string::npos);
  auto response = connection.httpResponseForMethod(method, target);
  FUZZ_REQUIRE((response != nullptr) == (isSupported && route != RouteName::RouteNameWebSocket));
  if (response) judge(std::move(response));
  judge(connection.routeNameFileForPath(target, HTTPMethod::Get));

  const auto socket = connection.webSocketForURI(target, std::make_shared<NoTransport>());
  FUZZ_REQUIRE(!socket || (target.starts_with("/frxsocket") && parseGetParams(target).contains("id")));
  return 0;
}

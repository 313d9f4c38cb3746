// Live streams. `stream serve FOLDER` advertises a folder into which somebody writes a stream (index.m3u8 and
// its segments). `stream fetch FOLDER` asks all peers until one has a stream, and fetches its playlist and
// first segments.
#include <signal.h>

#include <chrono>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/Capabilities/FRXStreamingCapability.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

using namespace ferrox;
namespace fs = std::filesystem;

namespace {

constexpr const char* playlist = "index.m3u8";
constexpr std::size_t segmentsToFetch = 3;
constexpr const char* plainCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";

int exitStatus = 0;

void fail(const std::string& reason) {
  std::cerr << reason << std::endl;
  exitStatus = 1;
  RunLoop::main().stop();
}

/// Control-C ends the program in order, so that peers learn of it at once.
void stopOnSignal() {
  sigset_t signals{};
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals] {
    int number = 0;
    sigwait(&signals, &number);
    RunLoop::main().post([] { RunLoop::main().stop(); });
  }).detach();
}

void startNode(const std::function<void()>& started) {
  const auto server = FRXServer::sharedInstance();
  server->setPort(0);
  server->createNewServiceName([server, started](const std::string& name) {
    RunLoop::main().post([server, started, name] {
      server->republishBonjourWithServiceName(name);
      FRXError error;
      if (!server->start(&error)) return fail(error.localizedDescription);
      server->startHeartbeatTimer();
      FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
      started();
    });
  });
}

void serve(const fs::path& folder) {
  const auto stream = std::make_shared<FRXStream>();
  stream->setId("camera");
  stream->setName("Camera");
  stream->setContentType(std::string(FRXContentTypeVideoAngle));
  stream->setFileSystemPath(fs::canonical(folder).string());
  const auto streams = std::make_shared<FRXStreamingCapability>();
  FRXServer::sharedInstance()->addCapability(streams);
  // Peers that are connected hear of it; those that come later ask.
  streams->addStream(stream, true);
  std::cout << "serving on port " << FRXServer::sharedInstance()->port() << std::endl;
}

/// `then` gets the body on the main thread.
void get(const std::string& url, const std::function<void(const std::string& body)>& then) {
  HTTPClientCallbacks callbacks;
  callbacks.onCompletion = [url, then](const std::optional<FRXError>& error,
                                       const HTTPClientResponse& response) {
    RunLoop::main().post([url, then, error, response] {
      if (error) return fail(url + ": " + error->localizedDescription);
      if (response.status != 200) return fail(url + ": status " + std::to_string(response.status));
      then(response.body);
    });
  };
  PlatformServices::shared().httpClient->send({.url = url}, std::move(callbacks));
}

/// The playlist's first segments. What a peer writes there is not to be trusted: only plain names become
/// files.
std::deque<std::string> segmentsIn(const std::string& body) {
  std::deque<std::string> names;
  std::istringstream lines(body);
  for (std::string line; names.size() < segmentsToFetch && std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    const bool isPlain = line.find_first_not_of(plainCharacters) == std::string::npos;
    if (!line.empty() && line.front() != '#' && line.front() != '.' && isPlain) names.push_back(line);
  }
  return names;
}

bool store(const fs::path& file, const std::string& body) {
  std::ofstream out(file, std::ios::binary);
  if (!(out << body).flush()) return fail("cannot write " + file.string()), false;
  std::cout << file.filename().string() << ": " << body.size() << " bytes" << std::endl;
  return true;
}

void fetchSegments(const std::string& url, const fs::path& folder, std::deque<std::string> names) {
  if (names.empty()) return RunLoop::main().stop();
  const std::string name = names.front();
  names.pop_front();
  get(url + "/" + name, [url, folder, name, names](const std::string& body) {
    if (store(folder / name, body)) fetchSegments(url, folder, names);
  });
}

void fetchStream(const FRXClientAccessor& stream, const fs::path& folder) {
  // Any player takes this URL.
  const std::string url = stream.accessURL() + "/" + playlist;
  std::cout << "found " << url << std::endl;
  get(url, [base = stream.accessURL(), folder](const std::string& body) {
    if (store(folder / playlist, body)) fetchSegments(base, folder, segmentsIn(body));
  });
}

/// Asks all peers again and again, until one has a stream.
void fetchFirstStream(const fs::path& folder) {
  static std::unique_ptr<Timer> timer;
  timer = Timer::scheduleRepeating(RunLoop::main(), std::chrono::seconds(1), [folder] {
    FRXCapabilitiesListing().listCapabilities([folder](const FRXCapabilitiesListing::Result& result) {
      const auto streams = result.find(FRXCapabilityNameStreaming);
      if (!timer || streams == result.end()) return;
      for (const auto& [serviceId, accessors] : streams->second) {
        if (accessors.empty()) continue;
        timer.reset();
        return fetchStream(accessors.front(), folder);
      }
    });
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string task = argc == 3 ? argv[1] : "";
  if ((task != "serve" && task != "fetch") || !fs::is_directory(argv[2])) {
    std::cerr << "usage: stream serve|fetch FOLDER" << std::endl;
    return 2;
  }
  const fs::path folder = argv[2];
  stopOnSignal();
  startNode([task, folder] { task == "serve" ? serve(folder) : fetchFirstStream(folder); });
  RunLoop::main().run();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  FRXServer::sharedInstance()->stop();
  return exitStatus;
}

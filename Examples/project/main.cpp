// Project folders. `project share FOLDER` offers a folder to be copied. `project copy FOLDER` asks all peers
// until one has a project, and copies it into that folder, with a progress bar.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Classes/Capabilities/FRXProjectSharingCapability.h"
#include "Classes/Copy/CopyR24ProjectOperation.h"
#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

using namespace ferrox;
namespace fs = std::filesystem;

namespace {

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

void share(const fs::path& folder) {
  const auto project = std::make_shared<FRXProject>();
  project->setId("reel");
  project->setName(folder.filename().string());
  project->setFileSystemPath(folder.string());
  const auto projects = std::make_shared<FRXProjectSharingCapability>();
  FRXServer::sharedInstance()->addCapability(projects);
  // Peers that are connected hear of it; those that come later ask.
  projects->addProject(project, true);
  std::cout << "sharing on port " << FRXServer::sharedInstance()->port() << std::endl;
}

/// Called on threads of the copy. Without an answer nothing would be copied, as a success.
struct Careful final : CopyR24ProjectOperationDelegate {
  void copyOperationDidIssueLowStorageWarning(const std::string&, const Decision&,
                                              const Decision& onAbort) override {
    onAbort();
  }
};

/// Redrawn ten times a second, from what the copy tells of itself.
class Copy {
 public:
  Copy(const std::string& url, const fs::path& destination) : careful_(std::make_shared<Careful>()) {
    copy_ = CopyR24ProjectOperation::makeWithBuilder([&](CopyR24ProjectOperationBuilder& builder) {
      builder.projectDownloadURL = url;
      builder.localProjectPath = destination.string();
      builder.maxConcurrentDownloads = 4;
      builder.fileDownloadTimeout = 30;
      builder.allowsEmptyFiles = true;
      builder.verifiesSizes = true;
      builder.resumes = true;  // what is there already is neither removed nor fetched again
    });
    copy_->setDelegate(careful_);
    copy_->start();
    timer_ = Timer::scheduleRepeating(RunLoop::main(), std::chrono::milliseconds(100), [this] { look(); });
  }
  ~Copy() { copy_->cancel(); }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

 private:
  void look() {
    const bool ended = copy_->isFinished();
    draw();
    if (!ended) return;
    timer_->invalidate();
    std::cout << std::endl;
    if (const auto error = copy_->error()) return fail(error->localizedDescription);
    std::cout << copy_->finishedFileCount() << " files copied" << std::endl;
    RunLoop::main().stop();
  }

  void draw() const {
    constexpr std::uint64_t width = 40;
    const std::uint64_t total = copy_->projectSize();
    const std::uint64_t received = std::min(copy_->receivedBytes(), total);
    const auto share = total == 0 ? 0.0 : static_cast<double>(received) / static_cast<double>(total);
    const auto done = static_cast<std::size_t>(share * width);
    std::cout << "\r[" << std::string(done, '#') << std::string(width - done, '-') << "] "
              << static_cast<int>(share * 100) << " %, file " << copy_->finishedFileCount() << " of "
              << copy_->fileCount() << std::flush;
  }

  std::shared_ptr<Careful> careful_;
  std::shared_ptr<CopyR24ProjectOperation> copy_;
  std::unique_ptr<Timer> timer_;
};

/// Asks all peers again and again, until one has a project.
void copyFirstProject(const fs::path& destination) {
  static std::unique_ptr<Timer> timer;
  static std::unique_ptr<Copy> copy;
  timer = Timer::scheduleRepeating(RunLoop::main(), std::chrono::seconds(1), [destination] {
    FRXCapabilitiesListing().listCapabilities([destination](const FRXCapabilitiesListing::Result& result) {
      const auto projects = result.find(FRXCapabilityNameProjectSharing);
      if (copy || projects == result.end()) return;
      for (const auto& [serviceId, accessors] : projects->second) {
        if (accessors.empty()) continue;
        timer.reset();
        std::cout << "copying " << accessors.front().accessURL() << std::endl;
        copy = std::make_unique<Copy>(accessors.front().accessURL(), destination);
        return;
      }
    });
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string task = argc == 3 ? argv[1] : "";
  const bool shares = task == "share" && fs::is_directory(argv[2]);
  if (!shares && task != "copy") {
    std::cerr << "usage: project share|copy FOLDER" << std::endl;
    return 2;
  }
  const fs::path folder = shares ? fs::canonical(argv[2]) : fs::absolute(argv[2]);
  stopOnSignal();
  startNode([shares, folder] { shares ? share(folder) : copyFirstProject(folder); });
  RunLoop::main().run();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  FRXServer::sharedInstance()->stop();
  return exitStatus;
}

// `ferrox run`: a node until it is stopped.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/DeclareObservations.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Events/CommandHandler.h"
#include "Apps/ferrox/Events/CommandReader.h"
#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Events/JsonPresenter.h"
#include "Apps/ferrox/Events/ServiceManager.h"
#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Apps/ferrox/Node/Node.h"
#include "Apps/ferrox/Node/NodeCopies.h"
#include "Apps/ferrox/Terminal/HumanPresenter.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

/// Passes everything on and notes how it ends.
class RunSession final : public NodeListener {
 public:
  explicit RunSession(NodeSetup setup) : setup_(std::move(setup)) {}

  int run() {
    RunLoop& loop = RunLoop::main();
    EventWriter writer(STDOUT_FILENO, [this, &loop](const std::string&) { loop.post([this] { end(); }); });
    node_ = Node::make(setup_, *this);
    makePresenter(writer);
    const SignalWatcher signals(loop, {SIGINT, SIGTERM, SIGHUP, SIGWINCH}, [this](int number) {
      if (number != SIGWINCH) return end();
      if (human_ != nullptr) human_->resized();
    });
    commands_ = std::make_unique<CommandHandler>(*node_, copies_, writer, [this] { end(); });
    node_->start();
    loop.run();
    node_->stop();
    reader_.reset();
    presenter_.reset();
    if (failure_) fmt::print(stderr, "ferrox: cannot start: {}\n", *failure_);
    return failure_ ? ExitFailed : ExitDone;
  }

  void nodeStarted(const NodeIdentity& node) override {
    presenter_->nodeStarted(node);
    manager_.tellReady(fmt::format("{} on port {}", node.serviceName, node.port));
    // Not earlier: no result comes before the node has said that it started.
    if (setup_.options.json) readCommands();
  }
  void nodeFailed(const std::string& reason) override {
    failure_ = reason;
    presenter_->nodeFailed(reason);
    end();
  }
  void localServiceStarted(const std::string& id) override { presenter_->localServiceStarted(id); }
  void localServiceEnded(const std::string& id) override { presenter_->localServiceEnded(id); }
  void peerDiscovered(const Peer& peer) override { presenter_->peerDiscovered(peer); }
  void peerRemoved(const Peer& peer) override { presenter_->peerRemoved(peer); }
  void peerChangedState(const Peer& peer) override { presenter_->peerChangedState(peer); }
  void peersChanged() override { presenter_->peersChanged(); }
  void peerRejoined(const std::string& frxId) override { presenter_->peerRejoined(frxId); }
  void connectionChanged(const ConnectionEvent& event) override { presenter_->connectionChanged(event); }
  void notificationSeen(const SeenNotification& notification) override {
    presenter_->notificationSeen(notification);
  }
  void messageReceived(const FRXNotification& notification, const FRXNetService& sender,
                       const std::string& sessionId) override {
    presenter_->messageReceived(notification, sender, sessionId);
  }
  void messageSent(const FRXWebsocketMessage& message, const FRXNetService& recipient) override {
    presenter_->messageSent(message, recipient);
  }
  void copyProgressed(const CopyJob& job, std::uint64_t bytes, std::uint64_t totalBytes) override {
    presenter_->copyProgressed(job, bytes, totalBytes);
  }
  void copyMetLowStorage(const CopyJob& job, bool goesOn) override {
    presenter_->copyMetLowStorage(job, goesOn);
  }
  void copyCancelled(const CopyJob& job) override { presenter_->copyCancelled(job); }
  void copyEnded(const CopyJob& job, const std::optional<FRXError>& error) override {
    presenter_->copyEnded(job, error);
  }

 private:
  void makePresenter(EventWriter& writer) {
    const Style style = Style::forDescriptor(STDOUT_FILENO);
    if (setup_.options.json) {
      presenter_ = std::make_unique<JsonPresenter>(writer);
      return;
    }
    std::unique_ptr<HumanPresenter> human;
    if (canRedraw(STDOUT_FILENO)) {
      human =
          std::make_unique<LivePresenter>(writer, RunLoop::main(), style, [this] { return node_->peers(); });
    } else {
      human = std::make_unique<PlainPresenter>(writer, style);
    }
    human_ = human.get();
    presenter_ = std::move(human);
  }

  void readCommands() {
    reader_ = std::make_unique<CommandReader>(
        STDIN_FILENO, RunLoop::main(),
        CommandReader::Listener{[this](const std::string& line) { commands_->handleLine(line); },
                                [this] { commands_->reportTooLong(); }, [] {}});
  }

  void end() {
    if (std::exchange(ending_, true)) return;
    manager_.tellStopping();
    copies_.cancelAll([this] { node_->finish(closingTime, [] { RunLoop::main().stop(); }); });
  }

  /// For peers to confirm the end of their connections.
  static constexpr std::chrono::seconds closingTime{2};

  NodeSetup setup_;
  const ServiceManager manager_ = ServiceManager::ofEnvironment();
  std::shared_ptr<Node> node_;
  NodeCopies copies_{*this};
  std::unique_ptr<NodeListener> presenter_;
  HumanPresenter* human_ = nullptr;
  std::unique_ptr<CommandHandler> commands_;
  std::unique_ptr<CommandReader> reader_;
  std::optional<std::string> failure_;
  bool ending_ = false;
};

class RunCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line =
        parent.subcommand("run", "a node until it is stopped: publishes, browses, monitors, connects");
    declareOffer(line, "--share", setup_.offers.projects, "offer a folder that peers may copy; repeatable");
    declareOffer(line, "--stream", setup_.offers.streams, "offer a folder of a live stream; repeatable");
    declareOffer(line, "--moments", setup_.offers.moments, "offer a folder of moments data; repeatable");
    declareObservations(line, "--observe", setup_.observations,
                        "tell of notifications of this name, with this filter only; repeatable");
    line.argument("--status", setup_.status, "a short text that peers can read in the announcement")
        .typeName("TEXT")
        .check(checkStatus);
    declareNodeOptions(line, setup_.options, FRXDefaultPort);
    line.footer(
        "With --json, events come on stdout, one JSON object a line, and commands are read from stdin:\n"
        "  {\"cmd\": \"post\", \"name\": TEXT, \"filter\"?: TEXT, \"userInfo\"?: {...}, \"repost\"?: true}\n"
        "  {\"cmd\": \"postLocal\"|\"observe\"|\"unobserve\", \"name\": TEXT, \"filter\"?: TEXT, ...}\n"
        "  {\"cmd\": \"addStream\", \"id\": TEXT, \"name\": TEXT, \"contentType\": "
        "\"video-angle\"|\"moments-data\",\n"
        "   \"path\": DIR, \"servedPath\"?: TEXT, \"port\"?: N, \"broadcast\"?: true}\n"
        "  {\"cmd\": \"addProject\", \"id\": TEXT, \"name\": TEXT, \"path\": DIR, ...}\n"
        "  {\"cmd\": \"removeStream\", \"servedPath\": TEXT} {\"cmd\": \"removeProject\", \"id\": TEXT} "
        "{\"cmd\": \"list\"}\n"
        "  {\"cmd\": \"copy\", \"url\": TEXT, \"dest\": DIR, \"maxContentLength\"?: N, "
        "\"maxConcurrentDownloads\"?: N,\n"
        "   \"fileDownloadTimeout\"?: S, \"onLowStorage\"?: \"abort\"|\"continue\", \"resumes\"?: true, "
        "\"allowsEmptyFiles\"?: true,\n"
        "   \"verifiesSizes\"?: true, \"preservesModificationTimes\"?: true} {\"cmd\": \"cancelCopy\", "
        "\"operationId\": TEXT}\n"
        "  {\"cmd\": \"peers\"|\"search\"|\"status\"|\"rename\"|\"stats\"|\"quit\", \"ref\": any, ...}\n\n"
        "Example:\n  ferrox run --share film:\"Film rushes\"=/media/rushes --status \"edit suite 3\"\n"
        "  ferrox run --observe TakeFinished --observe Playhead=\"edit suite 3\"");
    return line;
  }

  int run() override {
    applyNodeOptions(setup_.options);
    return RunSession(setup_).run();
  }

 private:
  static std::string checkStatus(const std::string& text) {
    return text.size() <= Node::maxStatusSize ? "" : fmt::format("at most {} bytes", Node::maxStatusSize);
  }

  static void declareOffer(CommandLine& line, const std::string& option, std::vector<Offer>& offers,
                           const std::string& description) {
    const auto take = [&offers](const std::string& text) { return takeOffer(text, offers); };
    line.repeated(option, take, description).typeName("ID[:NAME]=DIR");
  }

  static std::string takeOffer(const std::string& text, std::vector<Offer>& offers) {
    std::string problem;
    auto offer = Offer::fromText(text, problem);
    if (!offer) return problem;
    const bool taken =
        std::any_of(offers.begin(), offers.end(), [&](const Offer& other) { return other.id == offer->id; });
    if (taken) return "the ID " + offer->id + " is given twice";
    offers.push_back(std::move(*offer));
    return "";
  }

  NodeSetup setup_;
};

}  // namespace

std::unique_ptr<Subcommand> makeRunCommand() { return std::make_unique<RunCommand>(); }

}  // namespace ferrox::command

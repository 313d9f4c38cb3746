#include "Apps/ferrox/Terminal/HumanPresenter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Node/LogOutput.h"
#include "Apps/ferrox/Terminal/PeerLines.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr std::size_t keptEvents = 200;
constexpr std::chrono::milliseconds drawDelay{80};
constexpr std::string_view enterScreen = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr std::string_view leaveScreen = "\x1b[?7h\x1b[?25h\x1b[?1049l";

}  // namespace

void HumanPresenter::nodeStarted(const NodeIdentity& node) {
  tell(Tone::Plain, fmt::format("{} runs on port {} as {} ({} discovery)", node.computerName, node.port,
                                node.serviceName, node.discovery));
}

void HumanPresenter::localServiceStarted(const std::string&) { tell(Tone::Good, "visible to others"); }

void HumanPresenter::localServiceEnded(const std::string&) { tell(Tone::Notice, "not visible any more"); }

void HumanPresenter::peerDiscovered(const Peer& peer) { tell(Tone::Plain, "found " + nameAndAddress(peer)); }

void HumanPresenter::peerRemoved(const Peer& peer) { tell(Tone::Notice, "gone: " + nameAndAddress(peer)); }

void HumanPresenter::peerChangedState(const Peer& peer) {
  const bool responsive = peer.state == PeerState::Responsive;
  tell(responsive ? Tone::Good : Tone::Bad,
       nameAndAddress(peer) + (responsive ? " answers" : " does not answer any more"));
}

void HumanPresenter::connectionChanged(const ConnectionEvent& event) {
  const Tone tone = event.change == ConnectionEvent::Change::Connected ? Tone::Good : Tone::Notice;
  tell(tone, connectionText(event));
}

void HumanPresenter::notificationSeen(const SeenNotification& notification) {
  tell(Tone::Strong, notificationText(notification));
}

void PlainPresenter::tell(Tone tone, const std::string& text) {
  const std::string time = clockText(std::chrono::system_clock::now());
  writer_.writeText(style_(Tone::Dim, time) + "  " + style_(tone, escapedForTerminal(text)) + "\n");
}

LivePresenter::LivePresenter(EventWriter& writer, RunLoop& loop, Style style, PeersSource peers)
    : writer_(writer),
      loop_(loop),
      style_(style),
      peers_(std::move(peers)),
      self_(std::make_shared<LivePresenter*>(this)) {
  writer_.writeText(std::string(enterScreen));
  redirectLog([weak = std::weak_ptr(self_), &loop](LogLevel level, std::string message) {
    loop.post([weak, level, message = std::move(message)] {
      const auto self = weak.lock();
      if (self) (*self)->tell(level == LogLevel::Error ? Tone::Bad : Tone::Notice, message);
    });
  });
}

LivePresenter::~LivePresenter() {
  redirectLog({});
  writer_.writeText(std::string(leaveScreen));
}

void LivePresenter::nodeStarted(const NodeIdentity& node) {
  view_.node = node;
  HumanPresenter::nodeStarted(node);
}

void LivePresenter::localServiceStarted(const std::string& sessionId) {
  view_.visible = true;
  HumanPresenter::localServiceStarted(sessionId);
}

void LivePresenter::localServiceEnded(const std::string& sessionId) {
  view_.visible = false;
  HumanPresenter::localServiceEnded(sessionId);
}

void LivePresenter::tell(Tone tone, const std::string& text) {
  view_.events.push_back({std::chrono::system_clock::now(), tone, text});
  if (view_.events.size() > keptEvents) view_.events.pop_front();
  drawSoon();
}

void LivePresenter::drawSoon() {
  if (drawing_ && drawing_->isValid()) return;
  drawing_ = Timer::scheduleOnce(loop_, drawDelay, [this] { draw(); });
}

void LivePresenter::draw() {
  view_.peers = peers_();
  const std::vector<std::string> lines = renderLiveView(view_, terminalSize(STDOUT_FILENO), style_);
  std::string screen = "\x1b[H";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    screen += lines[i] + "\x1b[K";
    if (i + 1 < lines.size()) screen += "\r\n";
  }
  writer_.writeText(screen + "\x1b[J");
}

}  // namespace ferrox::command

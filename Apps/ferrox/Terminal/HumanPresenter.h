// A node's life told to a person: a live screen on a terminal, plain lines elsewhere.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Apps/ferrox/Node/NodeListener.h"
#include "Apps/ferrox/Terminal/LiveTable.h"
#include "Platform/Log/Log.h"

namespace ferrox {
class RunLoop;
class Timer;
}  // namespace ferrox

namespace ferrox::command {

class EventWriter;

/// Turns what happens into short sentences. Thread: main
class HumanPresenter : public NodeListener {
 public:
  void nodeStarted(const NodeIdentity& node) override;
  void localServiceStarted(const std::string& sessionId) override;
  void localServiceEnded(const std::string& sessionId) override;
  void peerDiscovered(const Peer& peer) override;
  void peerRemoved(const Peer& peer) override;
  void peerChangedState(const Peer& peer) override;
  void connectionChanged(const ConnectionEvent& event) override;
  void notificationSeen(const SeenNotification& notification) override;

  /// The terminal has another size now.
  virtual void resized() {}

 protected:
  /// Raw text: escape it before it reaches a terminal.
  virtual void tell(Tone tone, const std::string& text) = 0;
};

/// One line an event, with the time.
class PlainPresenter final : public HumanPresenter {
 public:
  PlainPresenter(EventWriter& writer, Style style) : writer_(writer), style_(style) {}

 protected:
  void tell(Tone tone, const std::string& text) override;

 private:
  EventWriter& writer_;
  Style style_;
};

/// A screen that is drawn anew, at most some ten times a second, whenever something changed. The terminal's
/// former content comes back at the end; log lines appear among the events meanwhile.
class LivePresenter final : public HumanPresenter {
 public:
  using PeersSource = std::function<std::vector<Peer>()>;

  /// `peers` is asked at every drawing.
  LivePresenter(EventWriter& writer, RunLoop& loop, Style style, PeersSource peers);
  ~LivePresenter() override;

  void nodeStarted(const NodeIdentity& node) override;
  void localServiceStarted(const std::string& sessionId) override;
  void localServiceEnded(const std::string& sessionId) override;
  void peersChanged() override { drawSoon(); }
  void resized() override { drawSoon(); }

 protected:
  void tell(Tone tone, const std::string& text) override;

 private:
  void drawSoon();
  void draw();

  EventWriter& writer_;
  RunLoop& loop_;
  Style style_;
  PeersSource peers_;
  LiveView view_;
  std::unique_ptr<Timer> drawing_;
  /// Gone with the presenter; log lines posted from other threads find out by it.
  std::shared_ptr<LivePresenter*> self_;
};

}  // namespace ferrox::command

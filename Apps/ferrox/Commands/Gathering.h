// Waiting until everybody who is there can be talked to.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Apps/ferrox/Node/Node.h"

namespace ferrox {
class Timer;
}

namespace ferrox::command {

/// Over when the node is connected to all peers that it found and nobody new has shown up for a while, or
/// when the time is up. Thread: main
class Gathering {
 public:
  /// `onOver` is called once.
  Gathering(std::chrono::duration<double> atMost, std::function<void()> onOver);
  ~Gathering();

  /// `node` is borrowed. Before it starts.
  void begin(const Node& node);
  /// Something about the peers or the connections to them is new.
  void peersChanged();
  /// Others see this node now. Whoever has seen no announcement of it would not hear its goodbye either, and
  /// list it for long.
  void becameVisible();
  /// Over without a word.
  void cancel();

  bool isOver() const { return over_; }
  bool everybodyIsConnected() const;

 private:
  void finishIfComplete();
  void finish();

  const std::chrono::duration<double> atMost_;
  std::function<void()> onOver_;
  const Node* node_ = nullptr;
  std::unique_ptr<Timer> deadline_;
  std::unique_ptr<Timer> settling_;
  bool settled_ = false;
  bool visible_ = false;
  bool over_ = false;
};

}  // namespace ferrox::command

// A growing file, asked for again and again until it no longer grows.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Classes/Copy/FRXAtomDownloadOperation.h"
#include "Platform/RunLoop/Clock.h"

namespace ferrox {
class RunLoop;
class Timer;
}  // namespace ferrox

namespace ferrox::command {

/// Asks at once again where the atoms ended the transfer before the peer did, and otherwise once in an
/// interval. A connection that is lost on the way counts as a time without growth; what was refused, what
/// cannot be written, and a server that does not honour ranges end it. Thread: main
class FollowSession final : public FRXAtomDownloadOperationDelegate,
                            public std::enable_shared_from_this<FollowSession> {
 public:
  struct Options {
    std::string url;
    std::string file;
    double timeout = 60;
    Clock::Duration interval = std::chrono::seconds(1);
    Clock::Duration untilIdle = std::chrono::seconds(10);
  };
  struct Events {
    /// The size of the local file, and how much it has grown.
    std::function<void(std::uint64_t sizeInBytes, std::uint64_t growth)> grew;
    /// Once: the reason of a failure, or nothing.
    std::function<void(std::optional<std::string> failure)> ended;
  };

  FollowSession(RunLoop& loop, Options options, Events events);
  ~FollowSession() override;

  void start();
  std::uint64_t sizeInBytes() const { return operation_.contentPosition(); }
  /// Whether the file ends with an atom, as far as the atoms tell.
  bool endsAtAtom() const { return operation_.contentPosition() == operation_.nextAtomPosition(); }

  bool downloadOperationReceivedData(FRXAtomDownloadOperation& operation, std::string_view data) override;
  void downloadOperationDidSucceed(FRXAtomDownloadOperation& operation, std::uint64_t sizeInBytes) override;
  void downloadOperationDidFail(FRXAtomDownloadOperation& operation, const FRXError& error) override;

 private:
  void run();
  void runEnded(std::optional<std::string> problem);
  bool isAnsweredFromTheStart(std::string_view firstBlock) const;
  void end(std::optional<std::string> failure);

  RunLoop& loop_;
  const Options options_;
  const Events events_;
  FRXAtomDownloadOperation operation_;
  /// Of the present run.
  std::uint64_t positionBefore_ = 0;
  std::uint64_t received_ = 0;
  bool isRunning_ = false;
  /// What the file begins with.
  std::string beginning_;
  Clock::Instant lastGrowth_{};
  std::unique_ptr<Timer> timer_;
  bool hasEnded_ = false;
};

}  // namespace ferrox::command

#include "Apps/ferrox/Downloads/FollowSession.h"

#include <algorithm>
#include <utility>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Platform/RunLoop/Timer.h"

namespace ferrox::command {
namespace {

constexpr int statusOK = 200;
constexpr int statusRangeNotSatisfiable = 416;
/// An atom's header and as much as tells it from others.
constexpr std::size_t tellingLength = 64;
constexpr std::size_t shortestTellingLength = 8;

}  // namespace

FollowSession::FollowSession(RunLoop& loop, Options options, Events events)
    : loop_(loop),
      options_(std::move(options)),
      events_(std::move(events)),
      operation_(options_.url, options_.file, options_.timeout) {}

FollowSession::~FollowSession() = default;

void FollowSession::start() {
  operation_.setDelegate(shared_from_this());
  lastGrowth_ = loop_.clock().now();
  run();
}

void FollowSession::run() {
  positionBefore_ = operation_.contentPosition();
  received_ = 0;
  isRunning_ = true;
  operation_.start();
}

bool FollowSession::downloadOperationReceivedData(FRXAtomDownloadOperation&, std::string_view data) {
  if (hasEnded_) return false;
  const std::uint64_t position = operation_.contentPosition();
  if (received_ == 0 && isAnsweredFromTheStart(data)) {
    end("the server does not honour ranges: it begins the file anew");
    return false;
  }
  received_ += data.size();
  if (position < tellingLength) {
    // What an earlier run received behind its last atom was not kept.
    beginning_.resize(static_cast<std::size_t>(position));
    beginning_.append(data.substr(0, tellingLength - beginning_.size()));
  }
  return true;
}

// A peer answers a part of a file with the same status as the whole, so the status alone tells nothing.
bool FollowSession::isAnsweredFromTheStart(std::string_view firstBlock) const {
  const std::uint64_t position = operation_.contentPosition();
  if (position == 0 || operation_.responseStatus() != statusOK) return false;
  const auto known =
      std::string_view(beginning_)
          .substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(position, tellingLength)));
  const auto length = std::min(known.size(), firstBlock.size());
  return length >= shortestTellingLength && known.substr(0, length) == firstBlock.substr(0, length);
}

void FollowSession::downloadOperationDidSucceed(FRXAtomDownloadOperation&, std::uint64_t) {
  runEnded(std::nullopt);
}

void FollowSession::downloadOperationDidFail(FRXAtomDownloadOperation&, const FRXError& error) {
  const bool hasBegun = operation_.contentPosition() > 0;
  // There is nothing behind what is here yet; the success that follows says so.
  if (hasBegun && operation_.responseStatus() == statusRangeNotSatisfiable &&
      error.domain != HTTPClientErrorDomain) {
    return;
  }
  if (hasBegun && error.domain == HTTPClientErrorDomain) return runEnded(error.localizedDescription);
  end(error.localizedDescription);
}

void FollowSession::runEnded(std::optional<std::string> problem) {
  if (hasEnded_ || !std::exchange(isRunning_, false)) return;
  const auto now = loop_.clock().now();
  const std::uint64_t growth = operation_.contentPosition() - positionBefore_;
  if (growth > 0) {
    lastGrowth_ = now;
    events_.grew(operation_.contentPosition(), growth);
  } else if (now - lastGrowth_ >= options_.untilIdle) {
    return end(std::move(problem));
  }
  const bool hasMore = growth > 0 && received_ > growth;
  timer_ = Timer::scheduleOnce(loop_, hasMore ? Clock::Duration::zero() : options_.interval,
                               [weak = weak_from_this()] {
                                 if (const auto self = weak.lock()) self->run();
                               });
}

void FollowSession::end(std::optional<std::string> failure) {
  if (std::exchange(hasEnded_, true)) return;
  timer_.reset();
  events_.ended(std::move(failure));
}

}  // namespace ferrox::command

#include "Platform/WebSocket/WebSocketUpkeep.h"

#include <algorithm>
#include <utility>

#include "Platform/WebSocket/WebSocketClientConnection.h"

namespace ferrox {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t readBufferSize = 64 * 1024;

/// Looks that lie far ahead are rounded up, so that those of many sockets fall together.
WebSocketUpkeep::TimePoint rounded(WebSocketUpkeep::TimePoint when, WebSocketUpkeep::TimePoint now) {
  const auto step = std::chrono::milliseconds(when - now > 5s ? 1000 : 50);
  const auto past = when.time_since_epoch() % step;
  return past == past.zero() ? when : when + (step - past);
}

}  // namespace

WebSocketUpkeep::WebSocketUpkeep() : thread_(IOThread::shared()), readBuffer_(readBufferSize) {}

WebSocketUpkeep& WebSocketUpkeep::shared() {
  static WebSocketUpkeep& upkeep = *new WebSocketUpkeep;
  return upkeep;
}

void WebSocketUpkeep::add(std::shared_ptr<WebSocketClientConnection> connection) {
  connections_.insert(std::move(connection));
}

void WebSocketUpkeep::remove(const std::shared_ptr<WebSocketClientConnection>& connection) {
  connections_.erase(connection);
  if (!connections_.empty() || !timer_) return;
  thread_.cancelTimer(*std::exchange(timer_, std::nullopt));
}

void WebSocketUpkeep::lookAt(TimePoint when) {
  if (when == TimePoint::max() || connections_.empty()) return;
  const TimePoint now = std::chrono::steady_clock::now();
  const TimePoint due = rounded(std::max(when, now), now);
  if (timer_ && timerDue_ <= due) return;
  if (timer_) thread_.cancelTimer(*timer_);
  timerDue_ = due;
  timer_ = thread_.startTimer(due - now, [this] { look(); });
}

void WebSocketUpkeep::look() {
  timer_.reset();
  const TimePoint now = std::chrono::steady_clock::now();
  TimePoint next = TimePoint::max();
  // A connection that fails while it is looked at takes itself out.
  const std::vector<std::shared_ptr<WebSocketClientConnection>> all(connections_.begin(), connections_.end());
  for (const auto& connection : all) next = std::min(next, connection->upkeep(now));
  lookAt(next);
}

}  // namespace ferrox

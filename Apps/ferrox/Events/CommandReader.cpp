#include "Apps/ferrox/Events/CommandReader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {

// Outlives the reader inside tasks that the loop has not run yet.
struct CommandReader::State {
  explicit State(Listener listener)
      : onEnd(std::move(listener.onEnd)),
        splitter({std::move(listener.onLine), std::move(listener.onTooLong)}) {}

  std::function<void()> onEnd;
  LineSplitter splitter;

  std::mutex mutex;
  std::condition_variable handled;
  bool busy = false;
  bool ended = false;
};

CommandReader::CommandReader(int descriptor, RunLoop& loop, Listener listener)
    : descriptor_(descriptor),
      stopDescriptor_(eventfd(0, EFD_CLOEXEC)),
      loop_(loop),
      state_(std::make_shared<State>(std::move(listener))),
      thread_([this] { work(); }) {}

CommandReader::~CommandReader() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->ended = true;
    state_->handled.notify_all();
  }
  eventfd_write(stopDescriptor_, 1);
  thread_.join();
  ::close(stopDescriptor_);
}

void CommandReader::work() {
  std::array<char, 64 * 1024> buffer;
  while (waitForInput()) {
    const ssize_t count = read(descriptor_, buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (!handOver(count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string())) {
      return;
    }
    if (count <= 0) return;
  }
}

bool CommandReader::waitForInput() const {
  pollfd watched[2] = {{descriptor_, POLLIN, 0}, {stopDescriptor_, POLLIN, 0}};
  while (poll(watched, 2, -1) < 0) {
    if (errno != EINTR) return false;
  }
  return watched[1].revents == 0;
}

// Empty bytes stand for the end of the input. False when the reader is being destroyed.
bool CommandReader::handOver(std::string bytes) {
  std::unique_lock lock(state_->mutex);
  state_->busy = true;
  loop_.post([state = state_, bytes = std::move(bytes)] {
    {
      const std::lock_guard lock(state->mutex);
      if (state->ended) return;
    }
    state->splitter.feed(bytes);
    if (bytes.empty()) {
      state->splitter.finish();
      if (state->onEnd) state->onEnd();
    }
    const std::lock_guard lock(state->mutex);
    state->busy = false;
    state->handled.notify_all();
  });
  state_->handled.wait(lock, [this] { return !state_->busy || state_->ended; });
  return !state_->ended;
}

}  // namespace ferrox::command

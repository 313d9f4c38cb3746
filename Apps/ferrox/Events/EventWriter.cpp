#include "Apps/ferrox/Events/EventWriter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <utility>

#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/Base/Json.h"

namespace ferrox::command {
namespace {

FRXValue writable(const FRXValue& value) {
  if (const std::string* text = value.asText()) return escapedForTerminal(*text);
  if (const FRXDate* date = value.asDate()) return millisecondsSince1970(*date);
  if (const double* number = value.asDouble()) return std::isfinite(*number) ? value : FRXValue();
  if (const FRXArray* array = value.asArray()) {
    FRXArray out;
    for (const FRXValue& element : *array) out.push_back(writable(element));
    return out;
  }
  if (const FRXDictionary* object = value.asObject()) {
    FRXDictionary out;
    for (const auto& [key, member] : *object) out[escapedForTerminal(key)] = writable(member);
    return out;
  }
  return value;
}

}  // namespace

std::int64_t millisecondsSince1970(std::chrono::system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

std::string eventLine(std::string_view event, const FRXDictionary& members,
                      std::chrono::system_clock::time_point time) {
  std::string line = R"({"event":)";
  appendJsonString(line, event);
  line += R"(,"time":)" + std::to_string(millisecondsSince1970(time));
  std::optional<std::string> rest = writeJson(members);
  if (!rest) rest = writeJson(writable(members));
  if (rest && rest->size() > 2) line.append(",").append(*rest, 1, rest->size() - 2);
  return line + "}\n";
}

EventWriter::EventWriter(int descriptor, std::function<void(std::string)> onClosed)
    : descriptor_(descriptor),
      wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      onClosed_(std::move(onClosed)),
      thread_([this] { work(); }) {}

EventWriter::~EventWriter() {
  {
    std::unique_lock lock(mutex_);
    drained_.wait_for(lock, std::chrono::seconds(2),
                      [this] { return closed_ || (waiting_.empty() && unwritten_ == 0); });
  }
  stopped_ = true;
  eventfd_write(wakeDescriptor_, 1);
  thread_.join();
  ::close(wakeDescriptor_);
}

void EventWriter::write(std::string_view event, FRXDictionary members) {
  writeText(eventLine(event, members, std::chrono::system_clock::now()));
}

void EventWriter::writeText(const std::string& text) {
  bool overfull = false;
  {
    const std::lock_guard lock(mutex_);
    if (closed_) return;
    overfull = waiting_.size() + unwritten_ + text.size() > maxWaiting;
    if (!overfull) waiting_ += text;
  }
  if (overfull) close("the reader of the output does not read");
  eventfd_write(wakeDescriptor_, 1);
}

void EventWriter::work() {
  while (waitForWork()) {
    {
      const std::lock_guard lock(mutex_);
      if (unwritten_ == 0) {
        lines_ = std::exchange(waiting_, {});
        written_ = 0;
        unwritten_ = lines_.size();
      }
    }
    if (!writeSome()) return;
  }
}

// Sleeps until there is something to write and room for it; false when the writer has ended. The descriptor
// is watched even while there is nothing to write, so that a reader's end is noticed at once.
bool EventWriter::waitForWork() {
  while (!stopped_ && !closed_) {
    bool pending = false;
    {
      const std::lock_guard lock(mutex_);
      pending = unwritten_ > 0 || !waiting_.empty();
    }
    pollfd watched[2] = {{descriptor_, static_cast<short>(pending ? POLLOUT : 0), 0},
                         {wakeDescriptor_, POLLIN, 0}};
    if (poll(watched, 2, -1) < 0 && errno != EINTR) return close(std::strerror(errno)), false;
    eventfd_t count = 0;
    if ((watched[1].revents & POLLIN) != 0) eventfd_read(wakeDescriptor_, &count);
    if ((watched[0].revents & (POLLERR | POLLNVAL)) != 0) return close("nobody reads the output"), false;
    if ((watched[0].revents & POLLOUT) != 0) return true;
  }
  return false;
}

// At most PIPE_BUF bytes at once: that much never blocks on a pipe which poll called writable.
bool EventWriter::writeSome() {
  const std::size_t size = std::min<std::size_t>(lines_.size() - written_, PIPE_BUF);
  const ssize_t count = ::write(descriptor_, lines_.data() + written_, size);
  if (count < 0 && errno != EINTR && errno != EAGAIN) return close(std::strerror(errno)), false;
  if (count <= 0) return true;
  written_ += static_cast<std::size_t>(count);
  const std::lock_guard lock(mutex_);
  unwritten_ = lines_.size() - written_;
  if (unwritten_ == 0 && waiting_.empty()) drained_.notify_all();
  return true;
}

void EventWriter::close(const std::string& reason) {
  {
    const std::lock_guard lock(mutex_);
    if (closed_.exchange(true)) return;
    waiting_.clear();
    drained_.notify_all();
  }
  if (onClosed_) onClosed_(reason);
}

}  // namespace ferrox::command

// Newline-delimited JSON events on a descriptor, written without ever blocking the caller.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "Platform/Base/FRXValue.h"

namespace ferrox::command {

/// How events tell a point in time.
std::int64_t millisecondsSince1970(std::chrono::system_clock::time_point time);

/// One event as a line: "event" and "time" (milliseconds since 1970) first, then the members. Whatever JSON
/// cannot carry is made writable: bytes that are not UTF-8 are escaped, dates become milliseconds, numbers
/// that are not finite become null. Ends in a newline and holds no other.
std::string eventLine(std::string_view event, const FRXDictionary& members,
                      std::chrono::system_clock::time_point time);

/// Hands lines to a thread that writes them, each as soon as the reader takes it, so that a reader which
/// pauses does not stop the node. A reader that is gone, or that has left `maxWaiting` bytes unread, closes
/// the writer.
class EventWriter {
 public:
  static constexpr std::size_t maxWaiting = std::size_t{64} << 20;

  /// `descriptor` is borrowed. `onClosed` is called at most once, on the writing thread, with the reason.
  EventWriter(int descriptor, std::function<void(std::string reason)> onClosed);
  /// Waits at most two seconds for what is still unwritten.
  ~EventWriter();
  EventWriter(const EventWriter&) = delete;
  EventWriter& operator=(const EventWriter&) = delete;

  /// Thread: any
  void write(std::string_view event, FRXDictionary members);
  /// Text as it is, for people. Thread: any
  void writeText(const std::string& text);

 private:
  void work();
  bool waitForWork();
  bool writeSome();
  void close(const std::string& reason);

  const int descriptor_;
  const int wakeDescriptor_;
  const std::function<void(std::string)> onClosed_;

  std::mutex mutex_;
  std::condition_variable drained_;
  std::string waiting_;
  /// Taken out of `waiting_` and not written yet.
  std::size_t unwritten_ = 0;
  std::atomic<bool> stopped_ = false;
  std::atomic<bool> closed_ = false;

  // The writing thread's own.
  std::string lines_;
  std::size_t written_ = 0;

  std::thread thread_;
};

}  // namespace ferrox::command

// The network half of a client socket: its descriptor, deadlines and upkeep on the I/O thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Net/FileDescriptor.h"
#include "Platform/Net/IOThread.h"
#include "Platform/RunLoop/MainLoopLink.h"
#include "Platform/WebSocket/ByteChannel.h"
#include "Platform/WebSocket/WebSocketClient.h"
#include "Platform/WebSocket/WebSocketClientSession.h"
#include "Platform/WebSocket/WebSocketURL.h"

namespace ferrox {

/// The texts that came with one read.
struct ReceivedTexts {
  std::string bytes;
  std::vector<std::size_t> ends;
};

/// Told about one connection. Thread: main
class WebSocketClientConnectionListener {
 public:
  virtual ~WebSocketClientConnectionListener() = default;
  virtual void connectionDidOpen() = 0;
  virtual void connectionDidReceive(const ReceivedTexts& texts) = 0;
  /// The last event.
  virtual void connectionDidEnd(const WebSocketEnding& ending) = 0;
};

/// Lives on the I/O thread; what is called from the main thread says so.
class WebSocketClientConnection final : public std::enable_shared_from_this<WebSocketClientConnection>,
                                        private ByteChannel,
                                        private WebSocketClientSessionListener {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  WebSocketClientConnection(const WebSocketClientRequest& request, WebSocketURL url, RunLoop& mainLoop,
                            std::weak_ptr<WebSocketClientConnectionListener> listener);
  ~WebSocketClientConnection() override;

  /// Connecting takes so long at most from now on. Thread: main
  void startDeadline();
  /// No event follows. Thread: main
  void detach() { toMain_.close(); }
  /// Cuts it without an event. Thread: any
  void abort();
  /// Whether so many bytes more may wait for the peer; then they count. Thread: main
  bool admit(std::size_t bytes);
  /// Bytes that were admitted and not yet taken by the system. Thread: any
  std::size_t waitingBytes() const {
    return inFlight_.load(std::memory_order_relaxed) + unsent_.load(std::memory_order_relaxed);
  }
  /// The listener has been through as many bytes of text. Thread: main
  void taken(std::size_t bytes);
  /// Thread: main
  void checkNow();

  /// What connecting led to.
  void connected(FileDescriptor socket, std::optional<FRXError> error);
  /// Frames that were admitted; `flush` sends them.
  void enqueue(const OutgoingQueue::Bytes& bytes, std::size_t begin, std::size_t end, bool closes);
  void failFull();
  void flush();
  /// Pings a quiet peer and fails one that does not answer. When to look next; never when there is no need.
  TimePoint upkeep(TimePoint now);

 private:
  ssize_t receive(std::span<char> space) override;
  ssize_t send(std::span<const iovec> pieces) override;
  void await(bool readable, bool writable) override;
  void shutDownSending() override;

  void sessionDidOpen() override;
  void sessionDidReceiveText(std::string_view text) override;
  void sessionDidStartClosing() override;
  void sessionDidEnd(WebSocketEnding ending) override;

  void channelIsReady();
  void heard();
  void deliverTexts();
  void ping(TimePoint now);
  void armDeadline(std::chrono::milliseconds delay);
  void deadlinePassed();
  void finishIfDone();
  void finish();
  void tell(std::function<void(WebSocketClientConnectionListener&)> event);

  IOThread& thread_;
  const WebSocketClientRequest request_;
  const WebSocketURL url_;
  const std::weak_ptr<WebSocketClientConnectionListener> listener_;
  MainLoopLink toMain_;

  /// Admitted by the main thread and not yet seen by this one.
  std::atomic<std::size_t> inFlight_{0};
  /// Seen, and not yet taken by the peer.
  std::atomic<std::size_t> unsent_{0};
  /// Bytes of texts that the main thread has not been through.
  std::atomic<std::size_t> untaken_{0};

  // Touched by the I/O thread alone.
  FileDescriptor socket_;
  std::optional<WebSocketClientSession> session_;
  std::optional<IOThread::Id> watch_;
  std::uint32_t watched_ = 0;
  std::optional<IOThread::Id> deadline_;
  ReceivedTexts received_;
  TimePoint lastHeard_{};
  std::optional<TimePoint> pingedAt_;
  bool finished_ = false;
};

}  // namespace ferrox

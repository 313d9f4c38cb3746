// Connects to the first of several addresses that answers (RFC 8305 section 5).
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "Platform/Base/FRXError.h"
#include "Platform/Net/FileDescriptor.h"
#include "Platform/Net/IOThread.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox {

/// Codes are those of errno.
inline constexpr const char* SocketErrorDomain = "com.ferrox.socket.ErrorDomain";
FRXError socketError(int code);

/// One race; it knows no time-out of its own.
/// Thread: the I/O thread
class ConnectionRace : public std::enable_shared_from_this<ConnectionRace> {
 public:
  /// A new attempt begins so long after the last one, or as soon as one fails.
  static constexpr std::chrono::milliseconds attemptDelay{250};

  /// A connected, non-blocking socket with TCP_NODELAY, or the last attempt's error.
  using Completion = std::function<void(FileDescriptor, std::optional<FRXError>)>;

  ConnectionRace(IOThread& thread, std::vector<SocketAddress> addresses, Completion completion);
  ~ConnectionRace();

  /// `completion` is called once, possibly inside this call.
  void start();
  /// No completion follows.
  void cancel();

 private:
  struct Attempt {
    FileDescriptor socket;
    IOThread::Id watch;
  };

  void startNextAttempt();
  void begin(const SocketAddress& address);
  void armDelay();
  void attemptIsReady(int descriptor);
  void complete(FileDescriptor socket, std::optional<FRXError> error);
  void dropAttempts();

  IOThread& thread_;
  const std::vector<SocketAddress> addresses_;
  Completion completion_;
  std::size_t next_ = 0;
  std::map<int, Attempt> attempts_;
  std::optional<IOThread::Id> delay_;
  int lastError_ = 0;
};

}  // namespace ferrox

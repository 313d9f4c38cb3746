// A TCP client that sends exactly the bytes a test wants and reads what comes back.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox::test {

/// One answer as it came over the wire.
struct RawResponse {
  int status = 0;
  std::string reason;
  std::string head;
  std::map<std::string, std::string> fields;  ///< names in lower case
  std::string body;

  std::string field(const std::string& lowerCaseName) const {
    const auto found = fields.find(lowerCaseName);
    return found == fields.end() ? std::string() : found->second;
  }
};

class RawSocket {
 public:
  /// Connects to loopback at once; `isOpen` tells whether it worked. `receiveBuffer` in bytes, 0 for the
  /// system's choice.
  explicit RawSocket(std::uint16_t port, bool ipv6 = false, int receiveBuffer = 0);
  ~RawSocket();
  RawSocket(RawSocket&& other) noexcept;
  RawSocket& operator=(RawSocket&& other) noexcept;

  bool isOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  /// False when the peer would not take all of it.
  bool send(std::string_view bytes);
  void shutDownSending();
  void close();
  /// Closes so that the peer sees a reset.
  void reset();

  /// The next answer; nothing when the connection ends or the deadline passes first. `toHead` for the answer
  /// to a HEAD request, which announces a body that does not come.
  std::optional<RawResponse> readResponse(bool toHead = false);
  /// Up to `count` bytes, fewer when the connection ends first.
  std::string read(std::size_t count);
  /// Everything until the peer closes.
  std::string readAll();
  /// True when the peer closes (or resets) within the deadline without sending anything more.
  bool isClosedByPeer();

  void setDeadline(std::chrono::milliseconds deadline) { deadline_ = deadline; }

 private:
  bool fill();
  int descriptor_ = -1;
  std::string buffer_;
  bool ended_ = false;
  std::chrono::milliseconds deadline_{10000};
};

}  // namespace ferrox::test

// Moves the body of one answer to a socket, piece by piece, in bounded memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/HTTP/Server/HTTPResponse.h"

namespace ferrox {

class SocketChannel;

/// A stretch of a response's body, behind a text of ours (the head of a part of a multipart body).
struct BodySegment {
  std::string text;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

/// Never waits for a disk on the network thread: what is not in memory is brought there by a job for the
/// disk pool, between two steps. A file that turns out shorter than announced ends the transfer as failed;
/// the last bytes of a stretch are always read, so that a truncation cannot pass unnoticed.
/// Thread: network, except the job
class BodyTransfer {
 public:
  enum class Step {
    Advanced,   ///< take the output along, then step again
    Blocked,    ///< wait until the socket is writable
    NeedsDisk,  ///< run `diskJob()` on the pool, then step again
    Failed,     ///< the announced length cannot be kept: close the connection
  };

  BodyTransfer(std::shared_ptr<HTTPResponse> response, std::vector<BodySegment> segments);

  /// Sends about one window, or appends less to `out`, which must be empty.
  Step step(SocketChannel& channel, std::string& out);
  std::function<void()> diskJob();
  /// Nothing is left to step through; what was put into the output may still be on its way.
  bool isFinished() const { return entered_ && remaining_ == 0 && current_ + 1 >= segments_.size(); }
  /// Bytes moved so far.
  std::uint64_t progress() const { return progress_; }
  /// Those of them that a file holds.
  std::uint64_t fileProgress() const { return fileProgress_; }
  /// Large files to other hosts want full packets around them.
  bool wantsCork(const SocketChannel& channel) const;

  /// Appends the whole of a small body when that takes no waiting.
  static bool appendSmall(const HTTPResponse& response, const BodySegment& segment, std::string& out);
  /// Whether the body is sent out of a file.
  static bool isFile(const HTTPResponse& response);
  static constexpr std::uint64_t smallBody = std::uint64_t{64} << 10;

 private:
  Step stepFile(SocketChannel& channel, std::string& out);
  Step stepTail(std::string& out);
  Step stepSendfile(SocketChannel& channel);
  Step stepStream(std::string& out);
  Step stepMemory(SocketChannel& channel);
  void advance(std::uint64_t bytes);
  void enterSegment(std::string& out);

  std::shared_ptr<HTTPResponse> response_;
  std::vector<BodySegment> segments_;
  std::size_t current_ = 0;
  bool entered_ = false;
  std::uint64_t offset_ = 0;
  std::uint64_t remaining_ = 0;
  std::uint64_t progress_ = 0;
  std::uint64_t fileProgress_ = 0;
  HTTPFileRegion region_;
  const std::string* memory_ = nullptr;

  /// What the disk pool fetched for the next step; alone touched by it while a job runs.
  struct Fetched;
  std::shared_ptr<Fetched> fetched_;
};

}  // namespace ferrox

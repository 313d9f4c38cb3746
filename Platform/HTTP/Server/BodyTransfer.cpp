#include "Platform/HTTP/Server/BodyTransfer.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Platform/HTTP/Server/PageCache.h"
#include "Platform/HTTP/Server/SocketChannel.h"

namespace ferrox {

namespace {

/// What one turn moves at most: large enough for the system calls not to count, small enough for a request
/// behind it not to notice. Over loopback the reader takes the bytes from the same caches, so less is better.
constexpr std::size_t windowSize = std::size_t{512} << 10;
constexpr std::size_t remoteWindowSize = std::size_t{2} << 20;
constexpr std::size_t streamPiece = std::size_t{64} << 10;

/// Reads all of `count` bytes or says how far it came; `flags` as for preadv2.
std::size_t readAt(int descriptor, char* to, std::size_t count, std::uint64_t offset, int flags) {
  std::size_t done = 0;
  while (done < count) {
    iovec piece{to + done, count - done};
    const ssize_t got = ::preadv2(descriptor, &piece, 1, static_cast<off_t>(offset + done), flags);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

bool appendFromCache(int descriptor, std::uint64_t offset, std::size_t count, std::string& out) {
  const std::size_t before = out.size();
  out.resize(before + count);
  if (readAt(descriptor, out.data() + before, count, offset, RWF_NOWAIT) == count) return true;
  out.resize(before);
  return false;
}

}  // namespace

struct BodyTransfer::Fetched {
  std::string bytes;
  bool wantsBytes = false;
  bool ready = false;
  bool failed = false;
  // What the job works on.
  int descriptor = -1;
  std::uint64_t offset = 0;
  std::size_t length = 0;

  void reset() {
    bytes.clear();
    wantsBytes = ready = failed = false;
    length = 0;
  }
  /// On the disk pool.
  void fetch() {
    if (wantsBytes) {
      bytes.resize(length);
      failed = readAt(descriptor, bytes.data(), length, offset, 0) != length;
    } else {
      failed = !bringIntoPageCache(descriptor, offset, length);
    }
    ready = true;
  }
};

BodyTransfer::BodyTransfer(std::shared_ptr<HTTPResponse> response, std::vector<BodySegment> segments)
    : response_(std::move(response)),
      segments_(std::move(segments)),
      region_(response_->fileRegion()),
      memory_(response_->contiguousBody()),
      fetched_(std::make_shared<Fetched>()) {}

bool BodyTransfer::wantsCork(const SocketChannel& channel) const {
  return memory_ == nullptr && region_.descriptor >= 0 && !channel.isPeerLocal();
}

bool BodyTransfer::isFile(const HTTPResponse& response) {
  return response.contiguousBody() == nullptr && response.fileRegion().descriptor >= 0;
}

bool BodyTransfer::appendSmall(const HTTPResponse& response, const BodySegment& segment, std::string& out) {
  if (segment.length > smallBody) return false;
  if (const std::string* body = response.contiguousBody(); body != nullptr) {
    if (body->size() < segment.offset + segment.length) return false;
    out.append(*body, segment.offset, segment.length);
    return true;
  }
  const HTTPFileRegion region = response.fileRegion();
  if (region.descriptor < 0) return segment.length == 0;
  return appendFromCache(region.descriptor, region.offset + segment.offset, segment.length, out);
}

BodyTransfer::Step BodyTransfer::step(SocketChannel& channel, std::string& out) {
  if (remaining_ == 0) enterSegment(out);
  // Texts of ours go first: windows are sent past the output.
  if (remaining_ == 0 || !out.empty()) return Step::Advanced;
  if (memory_ != nullptr) return stepMemory(channel);
  return region_.descriptor >= 0 ? stepFile(channel, out) : stepStream(out);
}

void BodyTransfer::enterSegment(std::string& out) {
  if (entered_) ++current_;
  entered_ = true;
  const BodySegment& segment = segments_[current_];
  out.append(segment.text);
  offset_ = segment.offset;
  remaining_ = segment.length;
  progress_ += segment.text.size();
}

void BodyTransfer::advance(std::uint64_t bytes) {
  offset_ += bytes;
  remaining_ -= bytes;
  progress_ += bytes;
  if (memory_ == nullptr && region_.descriptor >= 0) fileProgress_ += bytes;
}

BodyTransfer::Step BodyTransfer::stepMemory(SocketChannel& channel) {
  if (memory_->size() < offset_ + remaining_) return Step::Failed;
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, windowSize));
  const ssize_t sent = channel.sendNow(memory_->data() + offset_, count, count < remaining_);
  if (sent < 0) return Step::Failed;
  advance(static_cast<std::uint64_t>(sent));
  return static_cast<std::size_t>(sent) < count ? Step::Blocked : Step::Advanced;
}

BodyTransfer::Step BodyTransfer::stepStream(std::string& out) {
  response_->setOffset(offset_);
  const std::string bytes =
      response_->readDataOfLength(static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, streamPiece)));
  if (bytes.empty() || bytes.size() > remaining_) return Step::Failed;
  out.append(bytes);
  advance(bytes.size());
  return Step::Advanced;
}

BodyTransfer::Step BodyTransfer::stepFile(SocketChannel& channel, std::string& out) {
  if (fetched_->failed) return Step::Failed;
  return remaining_ <= smallBody ? stepTail(out) : stepSendfile(channel);
}

BodyTransfer::Step BodyTransfer::stepTail(std::string& out) {
  const auto count = static_cast<std::size_t>(remaining_);
  if (fetched_->ready) {
    out.append(fetched_->bytes);
    fetched_->reset();
  } else if (!appendFromCache(region_.descriptor, region_.offset + offset_, count, out)) {
    fetched_->wantsBytes = true;
    fetched_->length = count;
    return Step::NeedsDisk;
  }
  advance(count);
  return Step::Advanced;
}

BodyTransfer::Step BodyTransfer::stepSendfile(SocketChannel& channel) {
  const std::size_t window = channel.isPeerLocal() ? windowSize : remoteWindowSize;
  const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(remaining_ - smallBody, window));
  const std::uint64_t start = region_.offset + offset_;
  if (!fetched_->ready && !isInPageCache(region_.descriptor, start, length)) {
    fetched_->length = length;
    return Step::NeedsDisk;
  }
  fetched_->reset();
  auto position = static_cast<off_t>(start);
  const ssize_t sent = channel.sendFile(region_.descriptor, position, length);
  if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return Step::Blocked;
  if (sent <= 0) return Step::Failed;
  advance(static_cast<std::uint64_t>(sent));
  return static_cast<std::size_t>(sent) < length ? Step::Blocked : Step::Advanced;
}

std::function<void()> BodyTransfer::diskJob() {
  fetched_->descriptor = region_.descriptor;
  fetched_->offset = region_.offset + offset_;
  return [fetched = fetched_, keepOpen = response_] { fetched->fetch(); };
}

}  // namespace ferrox

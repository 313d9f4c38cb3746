#include "Platform/HTTP/Server/HTTPFileResponse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ferrox {

// Not blocking: a FIFO would otherwise hold the opener until somebody writes to it.
HTTPFileResponse::HTTPFileResponse(const std::string& path)
    : descriptor_(path.find('\0') == std::string::npos
                      ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)
                      : -1) {
  measure();
}

HTTPFileResponse::HTTPFileResponse(int ownedDescriptor) : descriptor_(ownedDescriptor) { measure(); }

HTTPFileResponse::~HTTPFileResponse() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void HTTPFileResponse::measure() {
  if (descriptor_ < 0) return;
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor_);
    descriptor_ = -1;
    return;
  }
  fileSize_ = regionLength_ = static_cast<std::uint64_t>(status.st_size);
  lastModified_ = status.st_mtime;
}

void HTTPFileResponse::restrictTo(std::uint64_t start, std::uint64_t end) {
  restricted_ = true;
  regionStart_ = std::min(start, fileSize_);
  regionLength_ = std::max(std::min(end, fileSize_), regionStart_) - regionStart_;
  offset_ = 0;
}

std::string HTTPFileResponse::readDataOfLength(std::size_t length) {
  if (descriptor_ < 0 || offset_ >= regionLength_) return {};
  std::string piece(static_cast<std::size_t>(std::min<std::uint64_t>(length, regionLength_ - offset_)), '\0');
  std::size_t done = 0;
  while (done < piece.size()) {
    const ssize_t got = ::pread(descriptor_, piece.data() + done, piece.size() - done,
                                static_cast<off_t>(regionStart_ + offset_ + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  piece.resize(done);
  offset_ += done;
  return piece;
}

HTTPFileRegion HTTPFileResponse::fileRegion() const { return {descriptor_, regionStart_, regionLength_}; }

std::optional<std::time_t> HTTPFileResponse::lastModified() const {
  if (descriptor_ < 0) return std::nullopt;
  return lastModified_;
}

}  // namespace ferrox

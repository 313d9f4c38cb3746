// What a connection answers with; the server writes status line and headers itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox {

/// Names and values in the order in which they are sent; a name may stand there more than once.
using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;

/// A stretch of an open file, sent from the page cache without passing through this process's memory.
struct HTTPFileRegion {
  int descriptor = -1;  ///< borrowed from the response, which outlives the transfer
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

/// One answer. The server asks `status`, `httpHeaders` and `contentLength` once, then takes the body from
/// the first of these that the response offers: `contiguousBody`, `fileRegion`, `readDataOfLength`.
/// Thread: network, except `prepare`
class FRX_EXPORT HTTPResponse {
 public:
  virtual ~HTTPResponse() = default;

  virtual std::uint64_t contentLength() const = 0;
  virtual std::uint64_t offset() const { return 0; }
  virtual void setOffset(std::uint64_t offset) { (void)offset; }
  /// At most `length` bytes from `offset()` on, which moves along; empty when there is no more.
  virtual std::string readDataOfLength(std::size_t length) { return (void)length, std::string(); }
  virtual bool isDone() const = 0;
  virtual int status() const { return 200; }
  virtual HTTPHeaders httpHeaders() const { return {}; }

  /// The whole body where it is in memory anyway, else nullptr.
  virtual const std::string* contiguousBody() const { return nullptr; }
  /// The body where it is a stretch of a file, else a region without descriptor.
  virtual HTTPFileRegion fileRegion() const { return {}; }
  /// True when the server may answer Range requests from this response (RFC 9110 section 14).
  virtual bool supportsByteRanges() const { return false; }
  /// Sent as `Last-Modified` and compared with `If-Range`.
  virtual std::optional<std::time_t> lastModified() const { return std::nullopt; }
};

/// Stands for an answer that must touch the disk first. The server runs `make` on its disk pool, never on a
/// network thread, and sends the response it returns; an empty pointer is answered 404. Before that it tries
/// `makeAtOnce` on the network thread, which must not wait for a disk and returns an empty pointer where it
/// would have to.
class FRX_EXPORT HTTPDeferredResponse final : public HTTPResponse {
 public:
  using Maker = std::function<std::unique_ptr<HTTPResponse>()>;
  explicit HTTPDeferredResponse(Maker make, Maker makeAtOnce = nullptr)
      : make_(std::move(make)), makeAtOnce_(std::move(makeAtOnce)) {}

  std::unique_ptr<HTTPResponse> make() const { return make_(); }
  std::unique_ptr<HTTPResponse> makeAtOnce() const { return makeAtOnce_ ? makeAtOnce_() : nullptr; }
  std::uint64_t contentLength() const override { return 0; }
  bool isDone() const override { return true; }

 private:
  Maker make_;
  Maker makeAtOnce_;
};

}  // namespace ferrox

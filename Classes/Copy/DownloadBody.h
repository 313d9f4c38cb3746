// The body of a download on its way into its file.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/FRXError.h"
#include "Platform/FileSystem/ReplacementFile.h"

namespace ferrox {

/// Bytes are gathered before they are written, since the HTTP client hands them out in small pieces. A small
/// body is written at the end only, in one go and by the thread that completes the download: thousands of
/// small files then do not wait for each other on the one thread that moves the bytes.
/// Thread: one at a time
class DownloadBody {
 public:
  using Opener = std::function<std::optional<ReplacementFile>(FRXError*)>;

  /// Bodies up to this many bytes are small. Of one whose length is not known, so many are gathered.
  static constexpr std::size_t smallSize = std::size_t{64} << 10;
  /// Of a body that is known to be large.
  static constexpr std::size_t largeWriteSize = std::size_t{256} << 10;

  explicit DownloadBody(Opener open) : open_(std::move(open)) {}

  /// How much will come, as far as it is known. To be called before the first byte.
  void expect(std::optional<std::uint64_t> size);
  /// False when the disk refused it; `error` then says why.
  [[nodiscard]] bool append(std::string_view piece);
  /// Writes what is left and puts the file into its place.
  [[nodiscard]] bool complete(std::optional<std::chrono::system_clock::time_point> modified);
  /// Removes what was written.
  void discard();

  std::uint64_t size() const { return size_; }
  const std::optional<FRXError>& error() const { return error_; }

 private:
  bool isKnownToBeLarge() const;
  bool writeGathered();
  bool check(bool succeeded, const FRXError& error);

  const Opener open_;
  std::optional<std::uint64_t> expected_;
  std::size_t gatheredSize_ = smallSize;
  std::string gathered_;
  std::optional<ReplacementFile> file_;
  std::uint64_t size_ = 0;
  std::optional<FRXError> error_;
};

}  // namespace ferrox

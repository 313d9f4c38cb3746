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

/// A small body is collected and written at the end, in one go and by the thread that completes the download:
/// thousands of small files then do not wait for each other on the one thread that moves the bytes. A larger
/// one goes to the disk piece by piece.
/// Thread: one at a time
class DownloadBody {
 public:
  using Opener = std::function<std::optional<ReplacementFile>(FRXError*)>;

  /// Bodies up to this many bytes are collected.
  static constexpr std::size_t smallSize = std::size_t{64} << 10;

  explicit DownloadBody(Opener open) : open_(std::move(open)) {}

  /// How much will come, as far as it is known. To be called before the first byte.
  void expect(std::optional<std::uint64_t> size) { expected_ = size; }
  /// False when the disk refused it; `error` then says why.
  [[nodiscard]] bool append(std::string_view piece);
  /// Writes what was collected and puts the file into its place.
  [[nodiscard]] bool complete(std::optional<std::chrono::system_clock::time_point> modified);
  /// Removes what was written.
  void discard();

  std::uint64_t size() const { return size_; }
  const std::optional<FRXError>& error() const { return error_; }

 private:
  bool openFile();
  bool check(bool succeeded, const FRXError& error);

  const Opener open_;
  std::optional<std::uint64_t> expected_;
  std::string collected_;
  std::optional<ReplacementFile> file_;
  std::uint64_t size_ = 0;
  std::optional<FRXError> error_;
};

}  // namespace ferrox

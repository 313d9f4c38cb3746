// A file that is changed in place.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Base/Export.h"
#include "Platform/Net/FileDescriptor.h"

namespace ferrox {

/// Open for reading and writing, never truncated by being opened. Thread: one at a time
class FRX_EXPORT UpdateFile {
 public:
  /// Why there is no open file.
  struct Problem {
    /// There was no file, and none could be made.
    bool whileCreating = false;
    std::string reason;
  };

  /// Makes an empty file where there is none.
  static std::optional<UpdateFile> open(const std::string& path, Problem& problem);
  /// 0 where nothing can be read of it.
  static std::uint64_t sizeOf(const std::string& path);

  /// False where the file cannot be positioned so, for example a pipe.
  [[nodiscard]] bool moveTo(std::uint64_t offset);
  /// All of `data`, or the reason why not; a part of it may then have been written.
  [[nodiscard]] std::optional<std::string> write(std::string_view data);
  /// The same at the end of the file, which is as long as before when it fails.
  [[nodiscard]] std::optional<std::string> append(std::string_view data);

 private:
  explicit UpdateFile(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace ferrox

// What is to be copied, where to, and how.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ferrox::command {

struct Command;

enum class OnLowStorage { Abort, Continue };

struct CopyRequest {
  /// Seconds without a byte after which a download is given up: a peer that lost its network says nothing.
  static constexpr double defaultTimeout = 60.0;

  /// Of the project.
  std::string url;
  std::string destination;
  /// Files of at least so many bytes are fetched in pieces of that size; -1 never.
  std::int64_t maxContentLength = -1;
  /// -1 is the library's choice.
  std::int64_t maxConcurrentDownloads = -1;
  /// 0 is none.
  double fileDownloadTimeout = defaultTimeout;
  OnLowStorage onLowStorage = OnLowStorage::Abort;
  bool allowsEmptyFiles = false;
  bool resumes = false;
  bool verifiesSizes = false;
  bool preservesModificationTimes = false;

  /// Of a command's members. Nothing, with `problem` saying why, when one is missing or wrong.
  static std::optional<CopyRequest> fromCommand(const Command& command, std::string& problem);
};

/// "abort" or "continue".
std::optional<OnLowStorage> onLowStorageFromText(const std::string& text);

/// Makes the destination an absolute path. False, with `problem` saying why, for folders that nobody can mean
/// to have replaced: the root, and whatever holds the home or the current directory.
[[nodiscard]] bool settleDestination(CopyRequest& request, std::string& problem);

}  // namespace ferrox::command

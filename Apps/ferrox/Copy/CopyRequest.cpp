#include "Apps/ferrox/Copy/CopyRequest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "Apps/ferrox/Events/Command.h"

namespace ferrox::command {
namespace {

namespace fs = std::filesystem;

/// Without links as far as it exists, and without a slash at its end.
fs::path settled(const fs::path& path) {
  std::error_code error;
  fs::path result = fs::weakly_canonical(path, error);
  if (error) result = path.lexically_normal();
  return result.has_filename() || !result.has_relative_path() ? result : result.parent_path();
}

bool holds(const fs::path& folder, const fs::path& path) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace

std::optional<OnLowStorage> onLowStorageFromText(const std::string& text) {
  if (text == "abort") return OnLowStorage::Abort;
  if (text == "continue") return OnLowStorage::Continue;
  return std::nullopt;
}

std::optional<CopyRequest> CopyRequest::fromCommand(const Command& command, std::string& problem) {
  CommandMembers members(command);
  CopyRequest request;
  request.url = members.name("url");
  request.destination = members.name("dest");
  request.maxContentLength = members.optionalInteger("maxContentLength").value_or(-1);
  request.maxConcurrentDownloads = members.optionalInteger("maxConcurrentDownloads").value_or(-1);
  request.fileDownloadTimeout = members.optionalNumber("fileDownloadTimeout").value_or(defaultTimeout);
  if (const auto text = members.optionalName("onLowStorage")) {
    const auto choice = onLowStorageFromText(*text);
    if (!choice) members.refuse("onLowStorage", R"(must be "abort" or "continue")");
    request.onLowStorage = choice.value_or(OnLowStorage::Abort);
  }
  request.allowsEmptyFiles = members.optionalFlag("allowsEmptyFiles");
  request.resumes = members.optionalFlag("resumes");
  request.verifiesSizes = members.optionalFlag("verifiesSizes");
  request.preservesModificationTimes = members.optionalFlag("preservesModificationTimes");
  problem = members.problem();
  if (!problem.empty() || !settleDestination(request, problem)) return std::nullopt;
  return request;
}

bool settleDestination(CopyRequest& request, std::string& problem) {
  std::error_code error;
  const fs::path current = fs::current_path(error);
  const fs::path destination = fs::absolute(request.destination, error);
  if (error) {
    problem = "the destination cannot be told: " + error.message();
    return false;
  }
  // A link in the place of the destination is itself replaced, so what counts is where it stands.
  const fs::path normal = destination.lexically_normal();
  const fs::path leaf = normal.has_filename() ? normal : normal.parent_path();
  const fs::path place = leaf.has_filename() && leaf.filename() != ".."
                             ? settled(leaf.parent_path()) / leaf.filename()
                             : settled(leaf);
  request.destination = place.string();
  if (request.resumes) return true;
  const char* home = std::getenv("HOME");
  for (const fs::path& kept : {settled(current), settled(home != nullptr && *home == '/' ? home : "/")}) {
    if (!holds(place, kept)) continue;
    problem = fmt::format("{} would be replaced, and {} with it", place.string(), kept.string());
    return false;
  }
  return true;
}

}  // namespace ferrox::command

#include "Apps/ferrox/Demo/DemoCopy.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <system_error>

#include "Apps/ferrox/Terminal/Quantities.h"

namespace ferrox::command {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr int folders = 10, filesPerFolder = 30;
constexpr std::uint64_t smallest = 4 << 10, largest = 64 << 10;
constexpr std::uint64_t largeFile = std::uint64_t{128} << 20, pieceLength = std::uint64_t{16} << 20;
constexpr const char* projectId = "feature";

bool haveSameBytes(const fs::path& a, const fs::path& b) {
  std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
  if (!first || !second) return false;
  std::string one(std::size_t{1} << 20, '\0'), other(one.size(), '\0');
  for (;;) {
    first.read(one.data(), static_cast<std::streamsize>(one.size()));
    second.read(other.data(), static_cast<std::streamsize>(other.size()));
    if (first.gcount() != second.gcount()) return false;
    if (first.gcount() == 0) return true;
    const auto count = static_cast<std::ptrdiff_t>(first.gcount());
    if (!std::equal(one.begin(), one.begin() + count, other.begin())) return false;
  }
}

}  // namespace

bool DemoCopy::makeProject() {
  if (!folder_.make()) return false;
  for (int folder = 0; folder < folders; ++folder) {
    for (int file = 0; file < filesPerFolder; ++file) {
      const auto size = std::uniform_int_distribution<std::uint64_t>(smallest, largest)(random_);
      if (!makeFile(fs::path(fmt::format("Sz\u00e4ne {}/Takes", folder)) / fmt::format("take {}.xml", file),
                    size)) {
        return false;
      }
    }
  }
  return makeFile("Media/A001_C002.mov", largeFile);
}

bool DemoCopy::makeFile(const fs::path& relative, std::uint64_t size) {
  const fs::path path = folder_.path() / "project" / relative;
  std::error_code error;
  fs::create_directories(path.parent_path(), error);
  std::vector<std::uint64_t> words(static_cast<std::size_t>(std::min(size, std::uint64_t{1} << 20)) /
                                   sizeof(random_()));
  std::ofstream file(path, std::ios::binary);
  for (std::uint64_t left = size; left > 0 && file;) {
    std::generate(words.begin(), words.end(), std::ref(random_));
    const std::uint64_t part = std::min<std::uint64_t>(left, words.size() * sizeof(words[0]));
    if (part == 0) break;
    file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(part));
    left -= part;
  }
  file.close();
  size_ += fs::file_size(path, error);
  files_.push_back(relative);
  return static_cast<bool>(file) && !error;
}

/// The project's URL. All nodes are on this machine, which may be unable to look their host name up.
std::string DemoCopy::offer(DemoRole& from) const {
  from.node->send({{"cmd", "addProject"},
                   {"id", projectId},
                   {"name", "Feature"},
                   {"path", (folder_.path() / "project").string()}});
  return fmt::format("http://127.0.0.1:{}/projects/{}", from.port, projectId);
}

StepOutcome DemoCopy::copy(DemoRole& from, DemoRole& to) {
  Instant cause = now();
  if (!makeProject()) return {false, between(cause, now()), "there is no room for temporary files"};
  const std::string url = offer(from);
  const auto offered = [&] { return DemoStage::find(from, "result", cause); };
  if (!stage_.waitUntil([&] { return offered() != nullptr; }, 5s)) {
    return {false, between(cause, now()), from.computerName + " did not take the project"};
  }
  cause = now();
  to.node->send({{"cmd", "copy"},
                 {"url", url},
                 {"dest", (folder_.path() / "copy").string()},
                 {"maxContentLength", static_cast<std::int64_t>(pieceLength)},
                 {"onLowStorage", "continue"}});
  const auto ended = [&] { return DemoStage::find(to, "copyCompleted", cause); };
  if (!stage_.waitUntil([&] { return ended() != nullptr; }, 60s)) {
    return {false, between(cause, now()), to.computerName + " did not come to an end"};
  }
  const FRXValue* success = ended()->members.member("success");
  const FRXValue* error = ended()->members.member("error");
  const microseconds elapsed = between(cause, ended()->arrival);
  if (success == nullptr || *success != FRXValue(true)) {
    return {false, elapsed, error != nullptr && error->asText() != nullptr ? *error->asText() : "it failed"};
  }
  const double seconds = std::max(1e-6, std::chrono::duration<double>(elapsed).count());
  return {true, elapsed,
          fmt::format("{} files, {}, the largest in pieces of {}: {}/s", files_.size(), formattedBytes(size_),
                      formattedBytes(pieceLength),
                      formattedBytes(static_cast<std::uint64_t>(static_cast<double>(size_) / seconds)))};
}

StepOutcome DemoCopy::compare() const {
  const Instant cause = now();
  std::error_code error;
  for (const fs::path& file : files_) {
    if (!haveSameBytes(folder_.path() / "project" / file, folder_.path() / "copy" / file)) {
      return {false, between(cause, now()), file.string() + " is not the same"};
    }
  }
  std::size_t copied = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder_.path() / "copy", error)) {
    if (entry.is_regular_file(error)) ++copied;
  }
  if (error || copied != files_.size()) {
    return {false, between(cause, now()),
            fmt::format("{} files came over instead of {}", copied, files_.size())};
  }
  return {true, between(cause, now()), fmt::format("{} files, byte for byte, and nothing else", copied)};
}

}  // namespace ferrox::command

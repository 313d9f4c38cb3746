#include "Platform/FileSystem/UpdateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <system_error>

namespace ferrox {
namespace {

constexpr mode_t defaultAttributes = 0666;

std::string reasonOf(int code) { return std::generic_category().message(code); }

FileDescriptor openFile(const std::string& path, int flags) {
  int file = -1;
  do {
    file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags, defaultAttributes);
  } while (file < 0 && errno == EINTR);
  return FileDescriptor(file);
}

}  // namespace

std::optional<UpdateFile> UpdateFile::open(const std::string& path, Problem& problem) {
  if (path.find('\0') != std::string::npos) {
    problem = {.whileCreating = true, .reason = reasonOf(EINVAL)};
    return std::nullopt;
  }
  FileDescriptor file = openFile(path, 0);
  const bool isMissing = !file.isOpen() && errno == ENOENT;
  if (isMissing) file = openFile(path, O_CREAT);
  if (!file.isOpen()) {
    problem = {.whileCreating = isMissing, .reason = reasonOf(errno)};
    return std::nullopt;
  }
  return UpdateFile(std::move(file));
}

std::uint64_t UpdateFile::sizeOf(const std::string& path) {
  struct stat attributes {};
  if (::stat(path.c_str(), &attributes) != 0 || attributes.st_size < 0) return 0;
  return static_cast<std::uint64_t>(attributes.st_size);
}

bool UpdateFile::moveTo(std::uint64_t offset) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return false;
  return ::lseek(file_.get(), static_cast<off_t>(offset), SEEK_SET) >= 0;
}

std::optional<std::string> UpdateFile::write(std::string_view data) {
  while (!data.empty()) {
    const ssize_t count = ::write(file_.get(), data.data(), data.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return reasonOf(count < 0 ? errno : ENOSPC);
    data.remove_prefix(static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

std::optional<std::string> UpdateFile::append(std::string_view data) {
  const off_t before = ::lseek(file_.get(), 0, SEEK_END);
  auto problem = write(data);
  if (problem && before >= 0 && ::ftruncate(file_.get(), before) != 0) {
    problem->append("; what was written of it could not be removed: " + reasonOf(errno));
  }
  return problem;
}

}  // namespace ferrox

#include "Platform/Host/MachineIdentity.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/Base/Utf8.h"
#include "Platform/Host/Text.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

// Part of every device UUID: another value makes every machine a stranger to those that knew it.
constexpr std::string_view applicationKey = "com.ferrox.device-uuid.1";
constexpr const char* keptIdName = "machine-id";

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return value_; }

 private:
  int value_;
};

/// The beginning of a small file; nothing when it cannot be read.
std::optional<std::string> readSmallFile(const fs::path& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) return std::nullopt;
  std::string content(std::size_t{16} << 10, '\0');
  std::size_t filled = 0;
  while (filled < content.size()) {
    const ssize_t got = read(file.get(), content.data() + filled, content.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  content.resize(filled);
  return content;
}

/// The content if it is a machine id (machine-id(5)): 32 hexadecimal digits, not all zero.
std::optional<std::string> readMachineId(const fs::path& path) {
  const std::optional<std::string> content = readSmallFile(path);
  if (!content) return std::nullopt;
  std::string id = text::trimmed(*content);
  const bool isHex = id.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  if (id.size() != 32 || !isHex || id.find_first_not_of('0') == std::string::npos) return std::nullopt;
  for (char& c : id) c = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
  return id;
}

/// The state folder of the user this process runs as, by the user data base.
std::optional<fs::path> userStateFolder() {
  std::vector<char> buffer(std::size_t{16} << 10);
  passwd entry{};
  passwd* found = nullptr;
  const int failure = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
  if (failure != 0 || found == nullptr || found->pw_dir == nullptr || found->pw_dir[0] != '/') {
    return std::nullopt;
  }
  return fs::path(found->pw_dir) / ".local" / "state" / "ferrox";
}

bool writeWhole(const fs::path& path, std::string_view content) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (file.get() < 0) return false;
  const ssize_t written = write(file.get(), content.data(), content.size());
  return written == static_cast<ssize_t>(content.size()) && fsync(file.get()) == 0;
}

/// The id kept in the folder, made up at the first time. When several processes get there at once, the file
/// of the first one stands, because link(2) never replaces.
std::optional<std::string> keptMachineId(const fs::path& folder) {
  const fs::path kept = folder / keptIdName;
  if (auto id = readMachineId(kept)) return id;
  std::error_code failure;
  fs::create_directories(folder, failure);
  std::string id = text::randomUUID();
  std::erase(id, '-');
  const fs::path draft = folder / (std::string(keptIdName) + "." + id);
  if (writeWhole(draft, id + "\n") && link(draft.c_str(), kept.c_str()) != 0 && errno == EEXIST &&
      !readMachineId(kept)) {
    // What is there is no id at all (cut off by a full disk, say), so it may go.
    fs::rename(draft, kept, failure);
  }
  fs::remove(draft, failure);
  return readMachineId(kept);
}

std::optional<std::string> keyedUUID(std::string_view machineId) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  const auto* result = HMAC(EVP_sha256(), machineId.data(), static_cast<int>(machineId.size()),
                            reinterpret_cast<const unsigned char*>(applicationKey.data()),
                            applicationKey.size(), digest.data(), &length);
  std::array<unsigned char, 16> bytes{};
  if (result == nullptr || length < bytes.size()) return std::nullopt;
  std::copy_n(digest.begin(), bytes.size(), bytes.begin());
  return text::uuidText(bytes);
}

/// The value of a line KEY=VALUE as a shell would read it; quotes go, a backslash keeps what follows.
std::string unquoted(std::string_view value) {
  std::string result;
  char quote = '\0';
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (c == '\\' && quote != '\'' && i + 1 < value.size()) {
      result += value[++i];
    } else if (quote == '\0' ? c == '"' || c == '\'' : c == quote) {
      quote = quote == '\0' ? c : '\0';
    } else {
      result += c;
    }
  }
  return result;
}

/// PRETTY_HOSTNAME of a machine-info file (machine-info(5)); the last one counts.
std::optional<std::string> prettyHostName(std::string_view content) {
  constexpr std::string_view key = "PRETTY_HOSTNAME=";
  std::optional<std::string> result;
  while (!content.empty()) {
    const std::size_t end = std::min(content.find('\n'), content.size());
    const std::string line = text::trimmed(content.substr(0, end));
    if (line.starts_with(key)) result = text::trimmed(unquoted(std::string_view(line).substr(key.size())));
    content.remove_prefix(std::min(end + 1, content.size()));
  }
  if (result && (result->empty() || !isUtf8(*result))) result.reset();
  return result;
}

}  // namespace

MachineIdentity::MachineIdentity(MachineIdentityFiles files) : files_(std::move(files)) {}

std::optional<std::string> MachineIdentity::deviceUUID() const {
  const MutexLock lock(mutex_);
  if (!deviceUUID_) {
    if (const auto id = findMachineId()) deviceUUID_ = keyedUUID(*id);
  }
  return deviceUUID_;
}

std::optional<std::string> MachineIdentity::findMachineId() const {
  if (auto id = readMachineId(files_.machineId)) return id;
  if (auto id = readMachineId(files_.busMachineId)) return id;
  const auto folder = files_.stateFolder ? files_.stateFolder : userStateFolder();
  if (!folder || folder->empty()) return std::nullopt;
  auto id = keptMachineId(*folder);
  if (!id) FRX_LOG_WARN("This machine has no id, and none can be kept in " + folder->string() + ".");
  return id;
}

std::string MachineIdentity::computerName() const {
  if (const auto info = readSmallFile(files_.machineInfo)) {
    if (auto name = prettyHostName(*info)) return *name;
  }
  return hostName();
}

std::string MachineIdentity::hostName() const {
  std::array<char, 256> buffer{};
  if (gethostname(buffer.data(), buffer.size() - 1) != 0) return "localhost";
  std::string name = buffer.data();
  name.resize(std::min(name.find('.'), name.size()));
  return name.empty() ? "localhost" : name;
}

std::optional<std::string> MachineIdentity::serialNumber() const {
  const auto content = readSmallFile(files_.productSerial);
  if (!content) return std::nullopt;
  std::string serial = text::trimmed(*content);
  if (serial.empty() || !isUtf8(serial)) return std::nullopt;
  return serial;
}

}  // namespace ferrox

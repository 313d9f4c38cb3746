#include "Apps/ferrox/Doctor/SocketOwners.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Platform/Base/Utf8.h"

namespace ferrox::command {
namespace {

namespace fs = std::filesystem;

constexpr const char* listening = "0A";

// Socket inodes on the port, from a table of the kernel's (proc(5)).
void collectInodes(const std::string& table, SocketKind kind, std::uint16_t port,
                   std::set<std::string>& inodes) {
  const std::string wanted = fmt::format("{:04X}", port);
  std::ifstream file(table);
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream words(line);
    const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
    if (fields.size() < 10) continue;
    const std::size_t colon = fields[1].rfind(':');
    const bool onPort = colon != std::string::npos && fields[1].substr(colon + 1) == wanted;
    if (onPort && (kind == SocketKind::BoundUDP || fields[3] == listening)) inodes.insert(fields[9]);
  }
}

bool ownsSocket(const fs::path& process, const std::set<std::string>& inodes) {
  std::error_code error;
  for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code unreadable;
    const std::string target = fs::read_symlink(entry->path(), unreadable).string();
    if (unreadable || target.rfind("socket:[", 0) != 0) continue;
    if (inodes.count(target.substr(8, target.size() - 9)) > 0) return true;
  }
  return false;
}

std::string nameOf(const fs::path& process) {
  std::ifstream file(process / "comm");
  std::string name;
  std::getline(file, name);
  return isUtf8(name) ? name : "?";
}

bool isNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::set<std::string> owners(const std::set<std::string>& inodes) {
  std::set<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error), end; !error && entry != end; entry.increment(error)) {
    const std::string process = entry->path().filename().string();
    if (!isNumber(process) || process == std::to_string(getpid())) continue;
    if (ownsSocket(entry->path(), inodes)) {
      names.insert(fmt::format("{} ({})", nameOf(entry->path()), process));
    }
  }
  return names;
}

}  // namespace

SocketOwners ownersOfPort(SocketKind kind, std::uint16_t port) {
  std::set<std::string> inodes;
  for (const char* const family : {"", "6"}) {
    const char* const protocol = kind == SocketKind::BoundUDP ? "udp" : "tcp";
    collectInodes(fmt::format("/proc/net/{}{}", protocol, family), kind, port, inodes);
  }
  if (inodes.empty()) return {};
  return {owners(inodes), true};
}

}  // namespace ferrox::command

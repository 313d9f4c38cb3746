#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "Apps/ferrox/Doctor/Checks.h"

namespace ferrox::command {
namespace {

namespace fs = std::filesystem;

constexpr const char* multicastDNSPortInHex = "14E9";

// Socket inodes bound to the port, from a table of the kernel's (proc(5)).
void collectInodes(const char* table, std::set<std::string>& inodes) {
  std::ifstream file(table);
  std::string line;
  std::getline(file, line);
  while (std::getline(file, line)) {
    std::istringstream words(line);
    std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
    if (fields.size() < 10) continue;
    const std::size_t colon = fields[1].rfind(':');
    if (colon != std::string::npos && fields[1].substr(colon + 1) == multicastDNSPortInHex) {
      inodes.insert(fields[9]);
    }
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
  return name;
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
    if (ownsSocket(entry->path(), inodes))
      names.insert(fmt::format("{} ({})", nameOf(entry->path()), process));
  }
  return names;
}

}  // namespace

Examination examineResponders() {
  Examination out{"responders", "Other multicast DNS on this machine", {}};
  std::set<std::string> inodes;
  collectInodes("/proc/net/udp", inodes);
  collectInodes("/proc/net/udp6", inodes);
  for (const std::string& name : owners(inodes)) {
    out.findings.push_back(
        {Verdict::Note, name + " shares port 5353; a node works beside it", {{"program", name}}});
  }
  if (inodes.empty()) {
    out.findings.push_back({Verdict::Good, "no other program uses port 5353", {}});
  } else if (out.findings.empty()) {
    out.findings.push_back(
        {Verdict::Note, "a program of another user shares port 5353; a node works beside it", {}});
  }
  const bool daemon = fs::exists("/run/avahi-daemon/socket");
  out.findings.push_back({Verdict::Good,
                          daemon ? "the system's discovery daemon runs: --discovery auto uses it"
                                 : "no discovery daemon runs: --discovery auto uses the embedded stack",
                          {{"daemon", daemon}}});
  return out;
}

}  // namespace ferrox::command

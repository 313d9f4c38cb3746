#include "Platform/FileSystem/ResourceBundle.h"

#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

namespace fs = std::filesystem;

constexpr const char* resourcesFolder = "share/ferrox";
constexpr std::size_t longestText = std::size_t{1} << 20;

/// The file this code was loaded from. A library's path is taken as the loader knows it; for the executable
/// the kernel is asked, since its first argument may be anything.
fs::path ownFile() {
  Dl_info info{};
  link_map* map = nullptr;
  const bool found = dladdr1(reinterpret_cast<const void*>(&ownFile), &info, reinterpret_cast<void**>(&map),
                             RTLD_DL_LINKMAP) != 0;
  if (found && map != nullptr && map->l_name != nullptr && *map->l_name != '\0') return map->l_name;
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error);
}

}  // namespace

std::vector<fs::path> ResourceBundle::searchFolders() {
  constexpr int levels = 4;
  std::vector<fs::path> folders;
  const fs::path file = ownFile();
  // One that was loaded by a relative path would be looked for in the current directory.
  if (file.is_absolute()) {
    fs::path folder = file.lexically_normal().parent_path();
    for (int i = 0; i < levels; ++i) {
      folders.push_back(folder / resourcesFolder);
      if (folder == folder.root_path()) break;
      folder = folder.parent_path();
    }
  }
  folders.emplace_back(FERROX_INSTALLED_RESOURCES);
  return folders;
}

std::optional<ResourceBundle> ResourceBundle::named(const std::string& name, const std::string& extension) {
  const std::string folderName = name + "." + extension;
  for (const fs::path& parent : searchFolders()) {
    std::error_code error;
    fs::path folder = parent / folderName;
    if (fs::is_directory(folder, error)) return ResourceBundle(std::move(folder));
  }
  return std::nullopt;
}

ResourceBundle::ResourceBundle(fs::path folder) : folder_(std::move(folder)) {}

fs::path ResourceBundle::pathOf(const std::string& name, const std::string& type) const {
  return folder_ / (name + "." + type);
}

bool ResourceBundle::has(const std::string& name, const std::string& type) const {
  std::error_code error;
  return fs::exists(pathOf(name, type), error);
}

std::optional<std::string> ResourceBundle::text(const std::string& name, const std::string& type) const {
  const fs::path path = pathOf(name, type);
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::string text;
  // Up to the limit, whatever size the file claims to have.
  text.resize(longestText + 1);
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (file.bad() || text.size() > longestText || !isUtf8(text)) return std::nullopt;
  return text;
}

}  // namespace ferrox

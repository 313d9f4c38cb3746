// The files that ship with the library, wherever it was put.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ferrox {

/// A folder of resources, "NAME.EXTENSION". It is looked for in "share/ferrox" beside the library (the
/// executable, where it is linked in) and beside up to three folders above it, which finds it in a build
/// tree, below an installation prefix and in an application that brings its own; then where this build
/// installs it. The current directory plays no part.
/// Thread: any; reads the disk
class ResourceBundle {
 public:
  /// The first folder of that name; nothing when there is none.
  static std::optional<ResourceBundle> named(const std::string& name, const std::string& extension);
  /// Where bundles are looked for, in this order.
  static std::vector<std::filesystem::path> searchFolders();

  explicit ResourceBundle(std::filesystem::path folder);
  const std::filesystem::path& folder() const { return folder_; }

  /// Whether there is anything under that name.
  bool has(const std::string& name, const std::string& type) const;
  /// The text of the file "NAME.TYPE" of the bundle. Nothing when there is none, when it is no regular file,
  /// longer than 1 MiB or no UTF-8.
  std::optional<std::string> text(const std::string& name, const std::string& type) const;

 private:
  std::filesystem::path pathOf(const std::string& name, const std::string& type) const;

  std::filesystem::path folder_;
};

}  // namespace ferrox

// A folder for the files of a demonstration, which goes with it.
#pragma once

#include <filesystem>

namespace ferrox::command {

/// Below the system's folder for temporary files. Thread: one
class DemoFolder {
 public:
  DemoFolder() = default;
  ~DemoFolder();
  DemoFolder(const DemoFolder&) = delete;
  DemoFolder& operator=(const DemoFolder&) = delete;

  /// False when there is no room for it.
  [[nodiscard]] bool make();
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace ferrox::command

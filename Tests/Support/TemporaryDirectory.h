// A directory of its own for one test, gone afterwards with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ferrox::test {

class TemporaryDirectory {
 public:
  explicit TemporaryDirectory(const std::filesystem::path& in = std::filesystem::temp_directory_path()) {
    std::string pattern = (in / "ferrox-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
    path_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string fileURL() const { return "file://" + path_.string(); }

  /// Writes a file, and the directories above it.
  std::filesystem::path write(const std::filesystem::path& relative, std::string_view content) const {
    const auto target = path_ / relative;
    std::filesystem::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << content;
    return target;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace ferrox::test

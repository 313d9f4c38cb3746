// A path from outside, used beneath a folder that holds links which lead out of it: whatever the path,
// nothing outside changes, and both ways of opening agree.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "Fuzz/FuzzSupport.h"
#include "Platform/FileSystem/OpenBeneath.h"
#include "Platform/FileSystem/PathRules.h"
#include "Platform/FileSystem/RootedFolder.h"
#include "Platform/FileSystem/RootedPath.h"
#include "Platform/FileSystem/TreeRemoval.h"
#include "Platform/Net/FileDescriptor.h"

namespace {

namespace fs = std::filesystem;
using namespace ferrox;

fs::path disk;
ino_t outside = 0;

/// The inside, as it is before every input. Short names, so that inputs that are made at random do name them.
RootedFolder freshFolder() {
  FUZZ_REQUIRE(removeTree((disk / "in").string()));
  auto folder = RootedFolder::make((disk / "in").string());
  FUZZ_REQUIRE(folder.has_value() && folder->makeFolders("d/e"));
  std::ofstream(disk / "in/f") << "inside";
  fs::create_directory_symlink("../out", disk / "in/l");
  fs::create_symlink("../../out/s", disk / "in/d/l");
  return std::move(*folder);
}

struct Opened {
  bool isOpen = false;
  int code = 0;
  ino_t inode = 0;
};

Opened open(decltype(&openBeneath) way, const RootedFolder& folder, std::string_view path) {
  const FileDescriptor file(way(folder.handle()->get(), path, O_PATH | O_CLOEXEC, 0));
  Opened result{file.isOpen(), file.isOpen() ? 0 : errno, 0};
  struct stat status {};
  if (file.isOpen() && ::fstat(file.get(), &status) == 0) result.inode = status.st_ino;
  return result;
}

bool outsideIsUntouched() {
  std::ifstream file(disk / "out/s");
  std::string text;
  std::getline(file, text);
  return text == "outside" &&
         std::distance(fs::directory_iterator(disk / "out"), fs::directory_iterator()) == 1 &&
         std::distance(fs::directory_iterator(disk), fs::directory_iterator()) == 2;
}

void removeDisk() {
  std::error_code ignored;
  fs::remove_all(disk, ignored);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  disk = fs::temp_directory_path() / ("ferrox-fuzz-" + std::to_string(::getpid()));
  fs::create_directories(disk / "out");
  std::ofstream(disk / "out/s") << "outside";
  struct stat status {};
  FUZZ_REQUIRE(::stat((disk / "out/s").c_str(), &status) == 0);
  outside = status.st_ino;
  std::atexit(removeDisk);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view path = fuzz::asText(data, size);
  const RootedFolder folder = freshFolder();
  const bool isUsable = !whyUnusable(path);
  FUZZ_REQUIRE(!isUsable || RootedPath::isConfined(path));
  if (RootedPath::isConfined(path)) {
    const Opened atOnce = open(&openBeneath, folder, path);
    const Opened stepwise = open(&openBeneathStepwise, folder, path);
    FUZZ_REQUIRE(atOnce.isOpen == stepwise.isOpen && atOnce.inode == stepwise.inode);
    FUZZ_REQUIRE(!atOnce.isOpen || atOnce.inode != outside);
  }
  (void)folder.regularFileSize(path);
  (void)folder.rename("f", path);
  (void)folder.makeEmptyFile(path);
  (void)folder.setModificationTime(path, {});
  (void)folder.removeFile(path);
  const bool made = folder.makeFolders(path);
  FUZZ_REQUIRE(!made || RootedPath::isConfined(path));
  (void)folder.makeEmptyFile(std::string(path) + "/x");
  FUZZ_REQUIRE(outsideIsUntouched());
  return 0;
}

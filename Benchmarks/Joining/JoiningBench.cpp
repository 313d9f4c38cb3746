// Joins pieces once, in the way that is named, and prints how long that took.
//
//   ferrox_bench_joining ferrox|whole MASTER PIECE...
//
// Either way removes each piece once it is appended and has the master written to the disk at the end; the
// time of that last step, which is the disk's, is told apart from the rest.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Classes/Copy/FRXFileJoiningOperation.h"

namespace {

using Seconds = std::chrono::duration<double>;
Seconds flushing{0};

Seconds since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::steady_clock::now() - begin;
}

bool joinWithOperation(const std::string& master, const std::vector<std::string>& pieces) {
  const auto operation = std::make_shared<ferrox::FRXFileJoiningOperation>(master);
  operation->addFiles(pieces);
  operation->start();
  return operation->isFinished() && !operation->error();
}

bool appendWhole(int master, const std::string& path) {
  const int piece = ::open(path.c_str(), O_RDONLY);
  struct stat status {};
  if (piece < 0 || ::fstat(piece, &status) != 0) return false;
  const auto size = static_cast<std::size_t>(status.st_size);
  const auto content = std::make_unique_for_overwrite<char[]>(size);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = ::read(piece, content.get() + done, size - done);
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  ::close(piece);
  for (done = 0; done < size;) {
    const ssize_t count = ::write(master, content.get() + done, size - done);
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return ::unlink(path.c_str()) == 0;
}

bool joinWhole(const std::string& path, const std::vector<std::string>& pieces) {
  const int master = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (master < 0) return false;
  for (const std::string& piece : pieces) {
    if (!appendWhole(master, piece)) return false;
  }
  return ::fsync(master) == 0 && ::close(master) == 0;
}

}  // namespace

// In the place of the C library's, for this program alone.
extern "C" int fsync(int descriptor) {
  const auto begin = std::chrono::steady_clock::now();
  const auto result = ::syscall(SYS_fsync, descriptor);
  flushing += since(begin);
  return static_cast<int>(result);
}
extern "C" int sync_file_range(int descriptor, off64_t offset, off64_t count, unsigned flags) {
  const auto begin = std::chrono::steady_clock::now();
  const auto result = ::syscall(SYS_sync_file_range, descriptor, offset, count, flags);
  flushing += since(begin);
  return static_cast<int>(result);
}

int main(int count, char** arguments) {
  if (count < 4) {
    std::fprintf(stderr, "usage: ferrox_bench_joining ferrox|whole MASTER PIECE...\n");
    return 2;
  }
  const std::string way = arguments[1];
  const std::string master = arguments[2];
  const std::vector<std::string> pieces(arguments + 3, arguments + count);
  const auto begin = std::chrono::steady_clock::now();
  const bool joined = way == "ferrox" ? joinWithOperation(master, pieces) : joinWhole(master, pieces);
  const Seconds taken = since(begin);
  std::printf("{\"join\": %.6f, \"flush\": %.6f}\n", (taken - flushing).count(), flushing.count());
  return joined ? 0 : 1;
}

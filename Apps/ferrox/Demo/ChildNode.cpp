#include "Apps/ferrox/Demo/ChildNode.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "Platform/Base/Json.h"

namespace ferrox::command {
namespace {

struct Pipe {
  int readEnd = -1;
  int writeEnd = -1;

  bool open() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    readEnd = ends[0];
    writeEnd = ends[1];
    return true;
  }
  ~Pipe() {
    if (readEnd >= 0) ::close(readEnd);
    if (writeEnd >= 0) ::close(writeEnd);
  }
};

// The child begins with no signal blocked and SIGPIPE as usual, unlike this process.
int spawnSelf(const std::vector<std::string>& arguments, const Pipe& in, const Pipe& out, pid_t& processId) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, in.readEnd, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, out.writeEnd, STDOUT_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  sigset_t usual;
  sigemptyset(&usual);
  sigaddset(&usual, SIGPIPE);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  // A group of its own: Ctrl-C reaches only this process, which then ends its children in order.
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  std::vector<std::string> words{"ferrox", "run", "--json"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const int error = posix_spawn(&processId, "/proc/self/exe", &files, &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

}  // namespace

std::unique_ptr<ChildNode> ChildNode::spawn(const std::vector<std::string>& arguments, std::string& problem) {
  Pipe in;
  Pipe out;
  if (!in.open() || !out.open()) return problem = std::strerror(errno), nullptr;
  pid_t processId = 0;
  const int error = spawnSelf(arguments, in, out, processId);
  if (error != 0) return problem = std::strerror(error), nullptr;
  const int output = std::exchange(out.readEnd, -1);
  fcntl(output, F_SETFL, O_NONBLOCK);
  return std::unique_ptr<ChildNode>(new ChildNode(processId, std::exchange(in.writeEnd, -1), output));
}

ChildNode::ChildNode(pid_t processId, int input, int output)
    : processId_(processId),
      input_(input),
      output_(output),
      startTime_(std::chrono::steady_clock::now()),
      splitter_({[this](const std::string& line) { takeLine(line); }, [] {}}) {}

ChildNode::~ChildNode() {
  if (!status()) {
    ::kill(processId_, SIGKILL);
    int status = 0;
    while (waitpid(processId_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  ::close(input_);
  if (output_ >= 0) ::close(output_);
}

void ChildNode::readAvailable() {
  std::array<char, 16 * 1024> buffer;
  while (output_ >= 0) {
    const ssize_t count = read(output_, buffer.data(), buffer.size());
    if (count > 0) {
      splitter_.feed({buffer.data(), static_cast<std::size_t>(count)});
      continue;
    }
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    ::close(std::exchange(output_, -1));
    splitter_.finish();
  }
}

void ChildNode::takeLine(const std::string& line) {
  std::optional<FRXValue> value = parseJson(line);
  const FRXValue* name = value ? value->member("event") : nullptr;
  if (name == nullptr || name->asText() == nullptr) return;
  events_.push_back({*name->asText(), *value, std::chrono::steady_clock::now()});
}

void ChildNode::send(const FRXDictionary& command) {
  const std::string line = writeJson(command).value_or("") + "\n";
  // Far below a pipe's capacity. A child that died is noticed by its events, not here.
  [[maybe_unused]] const ssize_t written = write(input_, line.data(), line.size());
}

void ChildNode::kill(int signalNumber) {
  if (!status()) ::kill(processId_, signalNumber);
}

std::optional<int> ChildNode::status() {
  int status = 0;
  if (!status_ && waitpid(processId_, &status, WNOHANG) == processId_) status_ = status;
  return status_;
}

}  // namespace ferrox::command

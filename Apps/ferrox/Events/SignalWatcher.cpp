#include "Apps/ferrox/Events/SignalWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "Apps/ferrox/ExitCode.h"
#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::command {
namespace {

sigset_t setOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : signals) sigaddset(&set, number);
  return set;
}

bool endsProcess(int number) { return number == SIGINT || number == SIGTERM; }

}  // namespace

void blockSignals() {
  const sigset_t set = setOf({SIGINT, SIGTERM, SIGHUP, SIGWINCH});
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

int makeEndSignalDescriptor() {
  const sigset_t set = setOf({SIGINT, SIGTERM, SIGHUP});
  return signalfd(-1, &set, SFD_CLOEXEC);
}

SignalWatcher::SignalWatcher(RunLoop& loop, std::initializer_list<int> signals,
                             std::function<void(int)> onSignal)
    : loop_(loop), onSignal_(std::move(onSignal)), stopDescriptor_(eventfd(0, EFD_CLOEXEC)) {
  const sigset_t set = setOf(signals);
  signalDescriptor_ = signalfd(-1, &set, SFD_CLOEXEC);
  thread_ = std::thread([this] { work(); });
}

SignalWatcher::~SignalWatcher() {
  eventfd_write(stopDescriptor_, 1);
  thread_.join();
  ::close(signalDescriptor_);
  ::close(stopDescriptor_);
}

void SignalWatcher::work() {
  pollfd watched[2] = {{signalDescriptor_, POLLIN, 0}, {stopDescriptor_, POLLIN, 0}};
  bool ending = false;
  for (;;) {
    if (poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[1].revents != 0) return;
    signalfd_siginfo info{};
    if (read(signalDescriptor_, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
    const int number = static_cast<int>(info.ssi_signo);
    if (ending && endsProcess(number)) _exit(ExitInterrupted);
    ending = ending || endsProcess(number);
    loop_.post([handler = onSignal_, number] { handler(number); });
  }
}

}  // namespace ferrox::command

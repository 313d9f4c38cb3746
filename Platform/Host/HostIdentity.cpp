#include "Platform/Host/HostIdentity.h"

#include "Platform/Base/Mutex.h"
#include "Platform/Host/MachineIdentity.h"

namespace ferrox {
namespace {

struct State {
  Mutex mutex;
  std::shared_ptr<const HostIdentity> replacement FRX_GUARDED_BY(mutex);
};

State& state() {
  static State* const instance = new State;
  return *instance;
}

}  // namespace

std::shared_ptr<const HostIdentity> HostIdentity::current() {
  State& identity = state();
  const MutexLock lock(identity.mutex);
  return identity.replacement != nullptr ? identity.replacement : ofMachine();
}

void HostIdentity::setCurrent(std::shared_ptr<const HostIdentity> identity) {
  State& current = state();
  const MutexLock lock(current.mutex);
  current.replacement.swap(identity);
}

std::shared_ptr<const HostIdentity> HostIdentity::ofMachine() {
  static const auto* const machine =
      new std::shared_ptr<const HostIdentity>(std::make_shared<MachineIdentity>());
  return *machine;
}

}  // namespace ferrox

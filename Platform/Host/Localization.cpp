#include "Platform/Host/Localization.h"

#include <memory>

#include "Platform/Base/Mutex.h"
#include "Platform/Log/Log.h"

namespace ferrox {
namespace {

struct State {
  Mutex mutex;
  std::shared_ptr<const Localization::Table> table FRX_GUARDED_BY(mutex);
};

State& state() {
  static State* const instance = new State;
  return *instance;
}

}  // namespace

void Localization::setTable(Table table) {
  auto shared = table ? std::make_shared<const Table>(std::move(table)) : nullptr;
  State& localization = state();
  const MutexLock lock(localization.mutex);
  localization.table.swap(shared);
}

std::string Localization::localized(std::string_view text) {
  std::shared_ptr<const Table> table;
  {
    State& localization = state();
    const MutexLock lock(localization.mutex);
    table = localization.table;
  }
  if (table == nullptr) return std::string(text);
  try {
    return (*table)(text);
  } catch (...) {
    FRX_LOG_ERROR("The host's table of translated texts failed.");
    return std::string(text);
  }
}

}  // namespace ferrox

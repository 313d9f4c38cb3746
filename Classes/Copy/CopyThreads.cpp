#include "Classes/Copy/CopyThreads.h"

#include "Platform/Queues/BackgroundQueue.h"

namespace ferrox {

// Neither is ever destroyed: copies may still be under way when the process ends.

BackgroundQueue& copyThreads() {
  constexpr unsigned mostCopies = 256;
  static BackgroundQueue* const queue = BackgroundQueue::makePool(mostCopies).release();
  return *queue;
}

BackgroundQueue& copyStepThreads() {
  constexpr unsigned mostJoins = 16;
  static BackgroundQueue* const queue = BackgroundQueue::makePool(mostJoins).release();
  return *queue;
}

}  // namespace ferrox

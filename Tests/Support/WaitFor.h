// Waiting for what other threads do, with a deadline instead of a fixed pause.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "Platform/RunLoop/RunLoop.h"

namespace ferrox::test {

/// Long enough for a machine under load; a test that passes never waits that long.
inline constexpr std::chrono::seconds patience{10};

/// Drives `loop` on this thread until `done()` holds; returns whether it did in time. `done` may look at
/// state that other threads change without posting to the loop.
inline bool waitFor(RunLoop& loop, const std::function<bool()>& done,
                    std::chrono::milliseconds timeout = patience) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!loop.runUntil(done, std::chrono::milliseconds(2))) {
    if (std::chrono::steady_clock::now() >= deadline) return done();
  }
  return true;
}

/// The same where no loop is involved.
inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout = patience) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return done();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace ferrox::test

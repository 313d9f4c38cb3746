// How long the steps of a demonstration take.
#pragma once

#include <chrono>

namespace ferrox::command {

using DemoInstant = std::chrono::steady_clock::time_point;

inline DemoInstant now() { return std::chrono::steady_clock::now(); }

inline std::chrono::microseconds between(DemoInstant from, DemoInstant to) {
  return std::chrono::duration_cast<std::chrono::microseconds>(to - from);
}

}  // namespace ferrox::command

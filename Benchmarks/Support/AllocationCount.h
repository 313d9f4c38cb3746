// How often the program asks for memory.
#pragma once

#include <cstdint>

namespace ferrox::bench {

/// Calls of malloc, calloc and realloc so far, whoever made them. Thread: any
std::uint64_t allocationCount();

}  // namespace ferrox::bench

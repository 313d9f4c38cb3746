// Dates as HTTP writes them (RFC 9110 section 5.6.7).
#pragma once

#include <ctime>
#include <string>

namespace ferrox {

/// For example "Sun, 06 Nov 1994 08:49:37 GMT", whatever the locale. Thread: any
std::string httpDate(std::time_t time);

}  // namespace ferrox

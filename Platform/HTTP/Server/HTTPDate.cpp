#include "Platform/HTTP/Server/HTTPDate.h"

#include <array>
#include <cstdio>

namespace ferrox {

std::string httpDate(std::time_t time) {
  static constexpr std::array days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm utc{};
  if (::gmtime_r(&time, &utc) == nullptr) return httpDate(0);
  char text[64];
  const int length = std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                                   days[static_cast<std::size_t>(utc.tm_wday)], utc.tm_mday,
                                   months[static_cast<std::size_t>(utc.tm_mon)], utc.tm_year + 1900,
                                   utc.tm_hour, utc.tm_min, utc.tm_sec);
  return std::string(text, static_cast<std::size_t>(length));
}

}  // namespace ferrox

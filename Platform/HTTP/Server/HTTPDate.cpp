#include "Platform/HTTP/Server/HTTPDate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ferrox {

namespace {

constexpr std::array days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int fullYear(int year, std::size_t digits) {
  if (digits > 2) return year;
  return year < 70 ? 2000 + year : 1900 + year;
}

/// The C library would carry what is out of range over into the next minute or month.
std::optional<std::time_t> checkedTime(const std::tm& utc) {
  std::tm carried = utc;
  const std::time_t time = ::timegm(&carried);
  if (carried.tm_mday != utc.tm_mday || carried.tm_mon != utc.tm_mon || carried.tm_hour != utc.tm_hour ||
      carried.tm_min != utc.tm_min || carried.tm_sec != utc.tm_sec) {
    return std::nullopt;
  }
  return time;
}

}  // namespace

std::string httpDate(std::time_t time) {
  std::tm utc{};
  if (::gmtime_r(&time, &utc) == nullptr) return httpDate(0);
  char text[64];
  const int length = std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                                   days[static_cast<std::size_t>(utc.tm_wday)], utc.tm_mday,
                                   months[static_cast<std::size_t>(utc.tm_mon)], utc.tm_year + 1900,
                                   utc.tm_hour, utc.tm_min, utc.tm_sec);
  return std::string(text, static_cast<std::size_t>(length));
}

std::optional<std::time_t> timeOfHTTPDate(const std::string& text) {
  static constexpr std::array layouts = {"%*3[A-Za-z], %2d %3[A-Za-z] %4[0-9] %2d:%2d:%2d GM%1[T]%n",
                                         "%*9[A-Za-z], %2d-%3[A-Za-z]-%2[0-9] %2d:%2d:%2d GM%1[T]%n"};
  std::tm utc{};
  char month[4] = "", year[5] = "", last[2] = "";
  int end = 0;
  bool isRead = false;
  for (const char* const layout : layouts) {
    if (isRead) break;
    isRead = std::sscanf(text.c_str(), layout, &utc.tm_mday, month, year, &utc.tm_hour, &utc.tm_min,
                         &utc.tm_sec, last, &end) == 7;
  }
  if (!isRead) {
    isRead = std::sscanf(text.c_str(), "%*3[A-Za-z] %3[A-Za-z] %2d %2d:%2d:%2d %4[0-9]%n", month,
                         &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, year, &end) == 6;
  }
  const auto named = std::find_if(months.begin(), months.end(),
                                  [&month](const char* name) { return std::strcmp(name, month) == 0; });
  if (!isRead || static_cast<std::size_t>(end) != text.size() || named == months.end()) return std::nullopt;
  utc.tm_mon = static_cast<int>(named - months.begin());
  utc.tm_year = fullYear(std::atoi(year), std::strlen(year)) - 1900;
  return checkedTime(utc);
}

}  // namespace ferrox

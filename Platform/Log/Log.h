// The library's log: entries with a level and a place, handed to whatever sink the host has set.
#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Base/Export.h"

namespace ferrox {

/// From the most talkative to the gravest.
enum class LogLevel { Verbose, Debug, Warn, Error };

/// "VERBOSE", "DEBUG", "WARN" or "ERROR".
FRX_EXPORT std::string_view toString(LogLevel level);

/// One line of the log as a sink gets it. `function` and `file` live as long as the program.
struct LogEntry {
  LogLevel level = LogLevel::Verbose;
  const char* function = "";
  const char* file = "";
  int line = 0;
  std::string message;
  std::chrono::system_clock::time_point time;
};

/// An entry about who passed what to whom, apart from the levels.
struct AuditEntry {
  std::string functionName;
  std::string operation;
  std::vector<std::pair<std::string, std::string>> attributes;
};

/// Where entries go. Called on the thread that logs, possibly on several at once.
class FRX_EXPORT LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(const LogEntry& entry) = 0;
  virtual void writeAudit(const AuditEntry& entry) = 0;
};

/// The process's log. Until the host sets a sink, WARN and above go to stderr, one escaped line each.
/// Thread: any
class FRX_EXPORT Log {
 public:
  /// Replaces the sink; an empty pointer brings the default one back.
  static void setSink(std::shared_ptr<LogSink> sink);
  /// Entries below this level are not even built. Default: Warn.
  static void setLevel(LogLevel level);
  static bool isEnabled(LogLevel level);

  static void write(LogLevel level, const char* function, const char* file, int line, std::string message);
  static void audit(AuditEntry entry);

  /// Control characters and bytes that are not UTF-8 as escapes, so that peer-supplied text cannot forge
  /// lines or drive a terminal.
  static std::string escaped(std::string_view text);
};

}  // namespace ferrox

/// The message expression is evaluated only when the level is on.
#define FRX_LOG(level, message)                                                                       \
  do {                                                                                                \
    if (::ferrox::Log::isEnabled(level)) {                                                            \
      ::ferrox::Log::write(level, static_cast<const char*>(__func__), __FILE__, __LINE__, (message)); \
    }                                                                                                 \
  } while (false)
#define FRX_LOG_VERBOSE(message) FRX_LOG(::ferrox::LogLevel::Verbose, message)
#define FRX_LOG_DEBUG(message) FRX_LOG(::ferrox::LogLevel::Debug, message)
#define FRX_LOG_WARN(message) FRX_LOG(::ferrox::LogLevel::Warn, message)
#define FRX_LOG_ERROR(message) FRX_LOG(::ferrox::LogLevel::Error, message)

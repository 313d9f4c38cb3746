#include "Platform/Log/Log.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>

#include "Platform/Base/Mutex.h"
#include "Platform/Base/ShortEscape.h"
#include "Platform/Base/Utf8.h"

namespace ferrox {
namespace {

/// "2024-03-01T14:05:09.123Z".
std::string timeText(std::chrono::system_clock::time_point time) {
  const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  const std::time_t calendar = static_cast<std::time_t>(seconds.count());
  std::tm parts{};
  gmtime_r(&calendar, &parts);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::array<char, 16> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>((sinceEpoch - seconds).count()));
  return std::string(text.data(), length) + fraction.data();
}

const char* fileName(const char* path) {
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

/// What applies until the host sets a sink of its own.
class StandardErrorSink : public LogSink {
 public:
  void write(const LogEntry& entry) override {
    if (entry.level < LogLevel::Warn) return;
    std::string line = timeText(entry.time);
    line.append(" ").append(toString(entry.level)).append(" ").append(Log::escaped(entry.message));
    line.append(" (").append(entry.function).append(", ").append(fileName(entry.file)).append(":");
    line.append(std::to_string(entry.line)).append(")\n");
    // One call, so that lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), stderr);
  }
  void writeAudit(const AuditEntry&) override {}
};

struct State {
  Mutex mutex;
  std::shared_ptr<LogSink> sink FRX_GUARDED_BY(mutex) = std::make_shared<StandardErrorSink>();
  std::atomic<LogLevel> level{LogLevel::Warn};

  std::shared_ptr<LogSink> currentSink() {
    const MutexLock lock(mutex);
    return sink;
  }
};

/// Never destroyed: threads may still log while the process ends.
State& state() {
  static State* const instance = new State;
  return *instance;
}

/// Characters that start a new line, drive a terminal or turn the direction of writing.
bool isHarmful(char32_t c) {
  return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0x2028 || c == 0x2029 || c == 0x200e || c == 0x200f ||
         (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069);
}

void appendEscape(std::string& out, const char* format, unsigned value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), format, value);
  out += text.data();
}

void appendHarmful(std::string& out, char32_t c) {
  if (const std::string_view known = shortEscape(c); !known.empty()) {
    out += known;
  } else {
    appendEscape(out, c < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
  }
}

}  // namespace

std::string_view toString(LogLevel level) {
  switch (level) {
    case LogLevel::Verbose:
      return "VERBOSE";
    case LogLevel::Debug:
      return "DEBUG";
    case LogLevel::Warn:
      return "WARN";
    case LogLevel::Error:
      break;
  }
  return "ERROR";
}

void Log::setSink(std::shared_ptr<LogSink> sink) {
  if (sink == nullptr) sink = std::make_shared<StandardErrorSink>();
  State& log = state();
  {
    const MutexLock lock(log.mutex);
    log.sink.swap(sink);
  }
  // The former sink goes here, outside the lock: its destructor may log.
}

void Log::setLevel(LogLevel level) { state().level.store(level, std::memory_order_relaxed); }

bool Log::isEnabled(LogLevel level) { return level >= state().level.load(std::memory_order_relaxed); }

void Log::write(LogLevel level, const char* function, const char* file, int line, std::string message) {
  if (!isEnabled(level)) return;
  const LogEntry entry{level, function, file, line, std::move(message), std::chrono::system_clock::now()};
  try {
    state().currentSink()->write(entry);
  } catch (...) {
    // There is no better place to report a sink that fails.
    std::fputs("The log sink failed.\n", stderr);
  }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): whoever audits makes the entry for this.
void Log::audit(AuditEntry entry) {
  try {
    state().currentSink()->writeAudit(entry);
  } catch (...) {
    std::fputs("The log sink failed.\n", stderr);
  }
}

std::string Log::escaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t position = 0; position < text.size();) {
    const std::size_t start = position;
    const std::optional<char32_t> c = nextCharacter(text, position);
    if (!c) {
      appendEscape(out, "\\x%02x", static_cast<unsigned char>(text[start]));
    } else if (isHarmful(*c)) {
      appendHarmful(out, *c);
    } else {
      out += text.substr(start, position - start);
    }
  }
  return out;
}

}  // namespace ferrox

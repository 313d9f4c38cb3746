#include "Apps/ferrox/Node/LogOutput.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <utility>

#include "Apps/ferrox/Terminal/Terminal.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

struct Redirection {
  std::mutex mutex;
  std::function<void(LogLevel, std::string)> taker;
};

// Never destroyed: threads of the library may log until the process ends.
Redirection& redirection() {
  static auto* instance = new Redirection;
  return *instance;
}

spdlog::level::level_enum spdlogLevel(LogLevel level) {
  switch (level) {
    case LogLevel::Verbose:
      return spdlog::level::trace;
    case LogLevel::Debug:
      return spdlog::level::debug;
    case LogLevel::Warn:
      return spdlog::level::warn;
    case LogLevel::Error:
      return spdlog::level::err;
  }
  return spdlog::level::err;
}

std::shared_ptr<spdlog::logger> makeLogger() {
  std::shared_ptr<spdlog::sinks::sink> sink;
  if (Style::forDescriptor(STDERR_FILENO).isColoured()) {
    sink = std::make_shared<spdlog::sinks::stderr_color_sink_mt>(spdlog::color_mode::always);
  } else {
    sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
  }
  auto logger = std::make_shared<spdlog::logger>("ferrox", std::move(sink));
  logger->set_level(spdlog::level::trace);
  logger->set_pattern("%H:%M:%S.%e %^%-7l%$ %v");
  return logger;
}

class CommandLogSink final : public LogSink {
 public:
  CommandLogSink() : logger_(makeLogger()) {}

  void write(const LogEntry& entry) override {
    std::string message = escapedForTerminal(entry.message);
    {
      Redirection& place = redirection();
      const std::lock_guard lock(place.mutex);
      if (place.taker) return place.taker(entry.level, std::move(message));
    }
    logger_->log(spdlogLevel(entry.level), message);
  }

  void writeAudit(const AuditEntry&) override {}

 private:
  std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace

void setLogOutput(LogLevel level) {
  Log::setLevel(level);
  Log::setSink(std::make_shared<CommandLogSink>());
}

void redirectLog(std::function<void(LogLevel, std::string)> taker) {
  Redirection& place = redirection();
  const std::lock_guard lock(place.mutex);
  place.taker = std::move(taker);
}

}  // namespace ferrox::command

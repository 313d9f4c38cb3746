// A log sink that keeps what was logged, so that a test can ask for it.
#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Log/Log.h"

namespace ferrox::test {

/// Thread: any
class RecordingLogSink : public LogSink {
 public:
  void write(const LogEntry& entry) override {
    const std::lock_guard lock(mutex_);
    entries_.push_back(entry);
  }
  void writeAudit(const AuditEntry& entry) override {
    const std::lock_guard lock(mutex_);
    audits_.push_back(entry);
  }

  std::vector<LogEntry> entries() const {
    const std::lock_guard lock(mutex_);
    return entries_;
  }
  std::vector<AuditEntry> audits() const {
    const std::lock_guard lock(mutex_);
    return audits_;
  }
  /// How many entries of that level have exactly that message.
  std::size_t count(LogLevel level, std::string_view message) const {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), [&](const LogEntry& e) {
      return e.level == level && e.message == message;
    }));
  }
  bool has(LogLevel level, std::string_view message) const { return count(level, message) > 0; }
  /// Whether an entry of that level holds that text.
  bool mentions(LogLevel level, std::string_view text) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(entries_.begin(), entries_.end(), [&](const LogEntry& e) {
      return e.level == level && e.message.find(text) != std::string::npos;
    });
  }
  void clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
    audits_.clear();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<LogEntry> entries_;
  std::vector<AuditEntry> audits_;
};

/// Records everything that is logged during its life, from the given level up; afterwards the log is as at
/// the start of the process.
class LogRecording {
 public:
  explicit LogRecording(LogLevel level = LogLevel::Verbose) {
    Log::setSink(sink_);
    Log::setLevel(level);
  }
  ~LogRecording() {
    Log::setSink(nullptr);
    Log::setLevel(LogLevel::Warn);
  }
  LogRecording(const LogRecording&) = delete;
  LogRecording& operator=(const LogRecording&) = delete;

  RecordingLogSink& operator*() const { return *sink_; }
  RecordingLogSink* operator->() const { return sink_.get(); }

 private:
  std::shared_ptr<RecordingLogSink> sink_ = std::make_shared<RecordingLogSink>();
};

}  // namespace ferrox::test

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Log/Log.h"
#include "Tests/Support/RecordingLogSink.h"

namespace ferrox {
namespace {

using namespace std::string_literals;

TEST(Log, HandsEntriesWithTheirPlaceToTheSink) {
  const test::LogRecording log;
  const int line = __LINE__ + 1;
  FRX_LOG_DEBUG("hello");
  ASSERT_EQ(log->entries().size(), 1U);
  const LogEntry entry = log->entries()[0];
  EXPECT_EQ(entry.level, LogLevel::Debug);
  EXPECT_STREQ(entry.function, "TestBody");
  EXPECT_NE(std::strstr(entry.file, "LogTests.cpp"), nullptr);
  EXPECT_EQ(entry.line, line);
  EXPECT_EQ(entry.message, "hello");
  EXPECT_NEAR(static_cast<double>((std::chrono::system_clock::now() - entry.time).count()), 0.0, 60e9);
}

TEST(Log, BuildsNoMessageBelowItsLevel) {
  const test::LogRecording log(LogLevel::Warn);
  bool built = false;
  const auto message = [&] {
    built = true;
    return std::string("m");
  };
  FRX_LOG_VERBOSE(message());
  FRX_LOG_DEBUG(message());
  EXPECT_FALSE(built);
  Log::write(LogLevel::Debug, "f", "p", 1, "direct");
  EXPECT_TRUE(log->entries().empty());
  FRX_LOG_WARN(message());
  FRX_LOG_ERROR(message());
  EXPECT_EQ(log->entries().size(), 2U);
}

TEST(Log, PassesAuditEntriesWhateverTheLevel) {
  const test::LogRecording log(LogLevel::Error);
  Log::audit({"Forward", "Socket", {{"from", "a"}, {"to", "b"}}});
  ASSERT_EQ(log->audits().size(), 1U);
  EXPECT_EQ(log->audits()[0].functionName, "Forward");
  EXPECT_EQ(log->audits()[0].attributes[1].second, "b");
}

TEST(Log, WritesWarningsAndErrorsToStandardErrorByDefault) {
  Log::setLevel(LogLevel::Verbose);
  testing::internal::CaptureStderr();
  FRX_LOG_DEBUG("quiet");
  FRX_LOG_WARN("two\nlines");
  Log::audit({"Forward", "Socket", {}});
  const std::string written = testing::internal::GetCapturedStderr();
  Log::setLevel(LogLevel::Warn);
  const std::regex expected(
      R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z WARN two\\nlines \(TestBody, LogTests\.cpp:\d+\)\n)");
  EXPECT_TRUE(std::regex_match(written, expected)) << written;
}

TEST(Log, SurvivesASinkThatThrows) {
  struct Bad : LogSink {
    void write(const LogEntry&) override { throw std::runtime_error("full"); }
    void writeAudit(const AuditEntry&) override { throw 1; }
  };
  testing::internal::CaptureStderr();
  Log::setSink(std::make_shared<Bad>());
  FRX_LOG_ERROR("lost");
  Log::audit({});
  Log::setSink(nullptr);
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST(Log, NamesItsLevels) {
  EXPECT_EQ(toString(LogLevel::Verbose), "VERBOSE");
  EXPECT_EQ(toString(LogLevel::Debug), "DEBUG");
  EXPECT_EQ(toString(LogLevel::Warn), "WARN");
  EXPECT_EQ(toString(LogLevel::Error), "ERROR");
}

TEST(LogEscaped, LeavesHarmlessTextAlone) {
  EXPECT_EQ(Log::escaped("Ren\u00e9's \u65e5\u672c \U0001f600 \\n 100%"),
            "Ren\u00e9's \u65e5\u672c \U0001f600 \\n 100%");
  EXPECT_EQ(Log::escaped(""), "");
}

TEST(LogEscaped, EscapesWhatForgesLinesOrDrivesATerminal) {
  EXPECT_EQ(Log::escaped("a\nb\rc\td\0e"s), "a\\nb\\rc\\td\\x00e");
  EXPECT_EQ(Log::escaped("\x1b[31m\x7f"), "\\x1b[31m\\x7f");
  EXPECT_EQ(Log::escaped("\u0085\u009b\u2028\u2029"), "\\u0085\\u009b\\u2028\\u2029");
  EXPECT_EQ(Log::escaped("\u202e\u2066"), "\\u202e\\u2066");
}

TEST(LogEscaped, EscapesBytesThatAreNotUtf8) {
  EXPECT_EQ(Log::escaped("a\xff\xc3z\xe2\x82"), "a\\xff\\xc3z\\xe2\\x82");
}

TEST(Log, TakesEntriesAndSinksFromManyThreads) {
  const test::LogRecording log;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        FRX_LOG_WARN(std::to_string(i));
        if (t == 0) Log::setLevel(LogLevel::Debug);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(log->entries().size(), 800U);
  EXPECT_EQ(log->count(LogLevel::Warn, "199"), 4U);
}

}  // namespace
}  // namespace ferrox

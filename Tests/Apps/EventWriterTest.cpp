#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <limits>

#include "Apps/ferrox/Events/EventWriter.h"
#include "Platform/Base/Json.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

struct Pipe {
  Pipe() {
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
  }
  ~Pipe() {
    closeReader();
    close(ends[1]);
  }
  void closeReader() {
    if (ends[0] >= 0) close(ends[0]);
    ends[0] = -1;
  }
  std::string readLine() const {
    std::string line;
    char c = 0;
    while (read(ends[0], &c, 1) == 1) {
      line += c;
      if (c == '\n') break;
    }
    return line;
  }
  int ends[2];
};

const auto someTime = std::chrono::system_clock::time_point(1234ms);

TEST(EventLine, BeginsWithEventAndTimeAndIsOneLine) {
  EXPECT_EQ(eventLine("started", {{"port", 7}, {"name", "a\nb"}}, someTime),
            "{\"event\":\"started\",\"time\":1234,\"name\":\"a\\nb\",\"port\":7}\n");
  EXPECT_EQ(eventLine("bare", {}, someTime), "{\"event\":\"bare\",\"time\":1234}\n");
}

TEST(EventLine, IsWrittenWhateverTheMembersHold) {
  const FRXDictionary members{{"text", "bad \xff byte"},
                              {"number", std::numeric_limits<double>::infinity()},
                              {"date", FRXDate(5ms)},
                              {"list", FRXArray{FRXDictionary{{"\xfe", "\xc3("}}}}};
  const std::string line = eventLine("x", members, someTime);
  const auto value = parseJson(line);
  ASSERT_TRUE(value) << line;
  EXPECT_EQ(*value->member("text"), FRXValue("bad \\xff byte"));
  EXPECT_TRUE(value->member("number")->isNull());
  EXPECT_EQ(*value->member("date"), FRXValue(5));
}

TEST(EventWriter, WritesEachEventAtOnceAndInOrder) {
  const Pipe pipe;
  EventWriter writer(pipe.ends[1], {});
  for (int i = 0; i < 100; ++i) {
    writer.write("count", {{"i", i}});
    const auto value = parseJson(pipe.readLine());
    ASSERT_TRUE(value);
    EXPECT_EQ(*value->member("i"), FRXValue(i));
  }
}

TEST(EventWriter, DoesNotBlockOnAReaderThatPausesAndLosesNothing) {
  const Pipe pipe;
  const std::string large(1000, 'x');
  EventWriter writer(pipe.ends[1], {});
  // Several times what a pipe holds.
  for (int i = 0; i < 1000; ++i) writer.write("count", {{"i", i}, {"large", large}});
  for (int i = 0; i < 1000; ++i) {
    const auto value = parseJson(pipe.readLine());
    ASSERT_TRUE(value);
    EXPECT_EQ(*value->member("i"), FRXValue(i));
  }
}

TEST(EventWriter, FlushesWhenDestroyed) {
  const Pipe pipe;
  { EventWriter(pipe.ends[1], {}).write("last", {}); }
  EXPECT_NE(pipe.readLine().find("\"last\""), std::string::npos);
}

TEST(EventWriter, NoticesAReaderThatGoesWhileNothingIsWritten) {
  Pipe pipe;
  std::promise<std::string> closed;
  const EventWriter writer(pipe.ends[1], [&](const std::string& reason) { closed.set_value(reason); });
  pipe.closeReader();
  auto reason = closed.get_future();
  ASSERT_EQ(reason.wait_for(5s), std::future_status::ready);
  EXPECT_FALSE(reason.get().empty());
}

TEST(EventWriter, ClosesOnAReaderThatLeavesTooMuchUnread) {
  const Pipe pipe;
  int closings = 0;
  {
    EventWriter writer(pipe.ends[1], [&](const std::string&) { ++closings; });
    const std::string large(std::size_t{1} << 20, 'x');
    for (std::size_t sent = 0; sent <= EventWriter::maxWaiting; sent += large.size()) writer.writeText(large);
    writer.writeText(large);
  }
  EXPECT_EQ(closings, 1);
}

}  // namespace
}  // namespace ferrox::command

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Classes/Copy/DataTask.h"
#include "Tests/Classes/Copy/DownloadFixture.h"

namespace ferrox::test {
namespace {

struct Listener : DataTaskListener {
  void dataTaskDidReceiveResponse(DataTask& task, const HTTPClientResponse& response) override {
    events += "r" + std::to_string(response.status) + " ";
    if (onResponse) onResponse(task);
  }
  void dataTaskDidReceiveData(DataTask& task, std::optional<std::string_view> data) override {
    body.append(data.value_or(""));
    largestBlock = std::max(largestBlock, data.value_or("").size());
    if (onData) onData(task);
  }
  void dataTaskDidComplete(DataTask&, const std::optional<FRXError>& error) override {
    events += error ? "e" + std::to_string(error->code) : "done";
    ++completions;
  }

  std::string events;
  std::string body;
  std::size_t largestBlock = 0;
  int completions = 0;
  std::function<void(DataTask&)> onResponse;
  std::function<void(DataTask&)> onData;
};

class DataTaskTests : public DownloadFixture {
 protected:
  std::shared_ptr<DataTask> start() {
    return DataTask::start(*client_, loop_, {.url = server_->url()}, listener_);
  }
  void serveBody(std::size_t size) {
    serve([size](const SeenRequest&, ScriptedConnection& connection) {
      connection.send(ScriptedHTTPServer::answer(std::string(size, 'x')));
    });
  }

  Listener listener_;
};

TEST_F(DataTaskTests, TellsResponseThenBodyThenEnd) {
  serveBody(3 << 20);
  const auto task = start();
  EXPECT_EQ(task->state(), DataTask::State::Running);
  EXPECT_TRUE(listener_.events.empty());
  ASSERT_TRUE(wait([this] { return listener_.completions > 0; }));
  EXPECT_EQ(listener_.events, "r200 done");
  EXPECT_EQ(listener_.body.size(), std::size_t{3} << 20);
  EXPECT_LE(listener_.largestBlock, DataTask::maxBlockSize);
  EXPECT_EQ(task->state(), DataTask::State::Completed);
}

TEST_F(DataTaskTests, BusyMainThreadHoldsTheSenderBack) {
  constexpr std::size_t total = std::size_t{64} << 20;
  const auto sentSoFar = std::make_shared<std::atomic<std::size_t>>(0);
  const std::atomic<std::size_t>& sent = *sentSoFar;
  serve([sentSoFar](const SeenRequest&, ScriptedConnection& connection) {
    connection.send(head(total));
    const std::string block(1 << 20, 'x');
    while (*sentSoFar < total && connection.send(block)) *sentSoFar += block.size();
  });
  const auto task = start();
  // Nobody drives the loop meanwhile.
  std::size_t before = 1;
  ASSERT_TRUE(waitFor(
      [&] {
        const std::size_t now = sent;
        if (now == 0 || now != before) {
          before = now;
          return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return sent == now;
      },
      longPatience));
  EXPECT_LT(sent, total / 2);
  EXPECT_TRUE(listener_.body.empty());
  ASSERT_TRUE(wait([this] { return listener_.completions > 0; }));
  EXPECT_EQ(listener_.events, "r206 done");
  EXPECT_EQ(listener_.body.size(), total);
}

TEST_F(DataTaskTests, CancelledTaskCompletesAsCancelledWhateverTheTransferDid) {
  serveBody(10);
  const auto task = start();
  // All of the answer has come, and waits for the loop.
  ASSERT_TRUE(waitFor([this] { return server_->acceptCount() == 1; }, longPatience));
  task->cancel();
  task->cancel();
  EXPECT_EQ(task->state(), DataTask::State::Canceling);
  ASSERT_TRUE(wait([this] { return listener_.completions > 0; }));
  EXPECT_EQ(listener_.events, "e-999");
}

TEST_F(DataTaskTests, CancellingWithinTheResponseIsFollowedByTheCompletion) {
  serveBody(10);
  listener_.onResponse = [](DataTask& task) { task.cancel(); };
  const auto task = start();
  ASSERT_TRUE(wait([this] { return listener_.completions > 0; }));
  EXPECT_EQ(listener_.events, "r200 e-999");
}

TEST_F(DataTaskTests, AbandonedTaskSaysNothingMore) {
  serveBody(8 << 20);
  listener_.onData = [](DataTask& task) { task.abandon(); };
  const auto task = start();
  ASSERT_TRUE(wait([&] { return task->state() == DataTask::State::Completed; }));
  EXPECT_EQ(listener_.events, "r200 ");
  EXPECT_LE(listener_.body.size(), DataTask::maxBlockSize);
}

TEST_F(DataTaskTests, TaskMayBeDroppedWithinItsOwnCalls) {
  serveBody(8 << 20);
  std::shared_ptr<DataTask> task;
  bool isDropped = false;
  listener_.onData = [&](DataTask&) {
    task.reset();
    isDropped = true;
  };
  task = start();
  ASSERT_TRUE(wait([&] { return isDropped; }));
  settle();
  EXPECT_EQ(listener_.events, "r200 ");
}

TEST_F(DataTaskTests, TransportErrorIsToldWithItsCode) {
  serve([](const SeenRequest&, ScriptedConnection& connection) { connection.stall(); });
  const auto task =
      DataTask::start(*client_, loop_,
                      {.url = server_->url(), .inactivityTimeout = std::chrono::milliseconds(50)}, listener_);
  ASSERT_TRUE(wait([this] { return listener_.completions > 0; }));
  EXPECT_EQ(listener_.events, "e-1001");
}

}  // namespace
}  // namespace ferrox::test

#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <string>

#include "Classes/Copy/FRXDownloadOperation.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Support/OpenDescriptors.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

class FRXDownloadOperationLoadTests : public TransferFixture {};

TEST_F(FRXDownloadOperationLoadTests, ThousandDownloadsInOneQueueAllArrive) {
  const std::size_t open = openDescriptorCount();
  {
    ScriptedResolver resolver;
    const auto client = HTTPClient::make(resolver);
    platform_.httpClient = client.get();
    ScriptedHTTPServer server([](ScriptedConnection& connection) {
      for (auto request = connection.readRequest(); !request.empty(); request = connection.readRequest()) {
        connection.send(ScriptedHTTPServer::answer(request.substr(0, request.find(" HTTP/"))));
      }
    });
    OperationQueue queue;
    std::vector<std::shared_ptr<FRXDownloadOperation>> operations;
    for (int i = 0; i < 1000; ++i) {
      const std::string name = std::to_string(i);
      operations.push_back(
          std::make_shared<FRXDownloadOperation>(server.url("/" + name), path(name), 0.0, platform_));
      queue.addOperation(operations.back());
    }
    queue.waitUntilAllOperationsAreFinished();
    for (int i = 0; i < 1000; ++i) {
      ASSERT_FALSE(operations[static_cast<std::size_t>(i)]->error()) << i;
      EXPECT_EQ(contentOf(path(std::to_string(i))), "GET /" + std::to_string(i));
    }
    EXPECT_EQ(namesIn(folder_.path()).size(), 1000u);
    EXPECT_LE(server.acceptCount(), 64u);
  }
  EXPECT_EQ(openDescriptorCount(), open);
}

class BlockingListener final : public FRXDownloadOperationDelegate {
 public:
  void downloadOperationDidSucceed(FRXDownloadOperation&, std::uint64_t) override {
    called.set_value();
    mayReturn.get_future().wait();
  }
  std::promise<void> called;
  std::promise<void> mayReturn;
};

TEST_F(FRXDownloadOperationLoadTests, ListenerThatBlocksHoldsUpNoOtherTransfer) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer(std::string(100000, 'x'))));
  const auto listener = std::make_shared<BlockingListener>();
  const auto blocking = download(server.url());
  blocking->setDelegate(listener);
  blocking->start();
  ASSERT_EQ(listener->called.get_future().wait_for(longPatience), std::future_status::ready);
  OperationQueue queue;
  for (int i = 0; i < 50; ++i) {
    queue.addOperation(
        std::make_shared<FRXDownloadOperation>(server.url(), path(std::to_string(i)), 0.0, platform_));
  }
  EXPECT_TRUE(waitFor([&queue] { return queue.operationCount() == 0; }, longPatience));
  listener->mayReturn.set_value();
  endClient();
}

TEST_F(FRXDownloadOperationLoadTests, DownloadsToOneTargetAtATimeLeaveOneWholeFile) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    for (auto request = connection.readRequest(); !request.empty(); request = connection.readRequest()) {
      connection.send(ScriptedHTTPServer::answer(std::string(200000, request[5])));
    }
  });
  OperationQueue queue;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    queue.addOperation(download(server.url("/" + std::string(1, letter))));
  }
  queue.waitUntilAllOperationsAreFinished();
  const std::string content = contentOf(path());
  ASSERT_EQ(content.size(), 200000u);
  EXPECT_EQ(content.find_first_not_of(content.front()), std::string::npos);
  EXPECT_EQ(namesIn(folder_.path()).size(), 1u);
}

/// Of the physical memory of this process, in KiB.
long memoryLine(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(name)) return std::stol(line.substr(name.size()));
  }
  return -1;
}

TEST_F(FRXDownloadOperationLoadTests, MemoryDoesNotGrowWithTheBody) {
  constexpr std::size_t pieces = 256;
  const std::string piece = recognisableBytes(1 << 20);
  ScriptedHTTPServer server([&piece](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(pieces * piece.size()) +
                    "\r\n\r\n");
    for (std::size_t i = 0; i < pieces && connection.send(piece); ++i) {
    }
  });
  const long before = memoryLine("VmRSS:");
  // The highest value is to be that of the transfer alone.
  std::ofstream("/proc/self/clear_refs") << "5" << std::flush;
  const auto operation = download(server.url());
  run(operation);
  const long highest = memoryLine("VmHWM:");
  ASSERT_FALSE(operation->error()) << operation->error()->localizedDescription;
  EXPECT_EQ(std::filesystem::file_size(path()), pieces << 20);
  ASSERT_GT(before, 0);
  EXPECT_LT(highest - before, 48L << 10);
}

}  // namespace
}  // namespace ferrox::test

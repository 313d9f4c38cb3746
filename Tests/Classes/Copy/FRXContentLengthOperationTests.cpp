#include <gtest/gtest.h>

#include <future>
#include <limits>
#include <string>
#include <vector>

#include "Classes/Copy/FRXContentLengthOperation.h"
#include "Platform/Host/Localization.h"
#include "Platform/Queues/OperationQueue.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/ScriptedHTTPClient.h"
#include "Tests/Support/ScriptedHTTPServer.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* domain = "com.ferrox.download.FRXContentLengthOperation.ErrorDomain";

class FRXContentLengthOperationTests : public TransferFixture {
 protected:
  std::shared_ptr<FRXContentLengthOperation> probe(const std::string& url, double timeout = 0) {
    return std::make_shared<FRXContentLengthOperation>(url, timeout, platform_);
  }
  /// The probe of a server that sends this head, which is over.
  std::shared_ptr<FRXContentLengthOperation> probeOfHead(const std::string& head) {
    ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(head + "\r\n\r\n"));
    auto operation = probe(server.url());
    run(operation);
    return operation;
  }
};

TEST_F(FRXContentLengthOperationTests, KeepsTheSizeThatTheHeadAnnounces) {
  std::promise<std::string> received;
  ScriptedHTTPServer server([&received](ScriptedConnection& connection) {
    received.set_value(connection.readRequest());
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 107374182400\r\n\r\n");
  });
  const auto operation = probe(server.url("/projects/P1/files/a%20b.mov"));
  EXPECT_EQ(operation->contentURL(), server.url("/projects/P1/files/a%20b.mov"));
  EXPECT_EQ(operation->contentLengthBytes(), 0u);
  run(operation);
  EXPECT_TRUE(received.get_future().get().starts_with("HEAD /projects/P1/files/a%20b.mov HTTP/1.1\r\n"));
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(operation->contentLengthBytes(), 107374182400u);
}

TEST_F(FRXContentLengthOperationTests, EveryStatusBut200IsAFailureThatNamesIt) {
  for (const int status : {204, 206, 301, 404, 500}) {
    const auto operation = probeOfHead("HTTP/1.1 " + std::to_string(status) + " Text\r\nContent-Length: 5");
    EXPECT_EQ(
        operation->error(),
        (FRXError{domain, -1, "Content-Length request failed with status code " + std::to_string(status)}));
    EXPECT_EQ(operation->contentLengthBytes(), 0u);
  }
}

TEST_F(FRXContentLengthOperationTests, LengthOfZeroIsASuccessAndAMissingOneIsNot) {
  EXPECT_FALSE(probeOfHead("HTTP/1.1 200 OK\r\nContent-Length: 0")->error());
  EXPECT_EQ(probeOfHead("HTTP/1.1 200 OK\r\nX-Content-Length: 5")->error(),
            (FRXError{domain, -1, "response did not contain Content-Length header"}));
}

TEST_F(FRXContentLengthOperationTests, LengthThatIsNoNumberCountsAsZero) {
  for (const std::string text : {"abc", "", "-5", "5x", "5, 5", "0x10", "1e3"}) {
    const auto operation = probeOfHead("HTTP/1.1 200 OK\r\nContent-Length: " + text);
    EXPECT_FALSE(operation->error()) << text;
    EXPECT_EQ(operation->contentLengthBytes(), 0u) << text;
  }
  EXPECT_EQ(probeOfHead("HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999999")->contentLengthBytes(),
            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
}

TEST_F(FRXContentLengthOperationTests, NameOfTheHeaderKnowsNoCase) {
  EXPECT_EQ(probeOfHead("HTTP/1.1 200 OK\r\ncontent-length: 7")->contentLengthBytes(), 7u);
}

TEST_F(FRXContentLengthOperationTests, TextsPassThroughTheTableOfTranslatedTexts) {
  Localization::setTable([](std::string_view text) { return "<" + std::string(text) + ">"; });
  const auto operation = probeOfHead("HTTP/1.1 404 Not Found\r\nContent-Length: 0");
  Localization::setTable(nullptr);
  ASSERT_TRUE(operation->error());
  EXPECT_EQ(operation->error()->localizedDescription, "<Content-Length request failed with status code 404>");
}

TEST_F(FRXContentLengthOperationTests, TransportErrorIsKeptUnchanged) {
  const auto operation = probe("http://127.0.0.1:" + std::to_string(unusedPort()) + "/");
  run(operation);
  ASSERT_TRUE(operation->error());
  EXPECT_EQ(operation->error()->domain, HTTPClientErrorDomain);
  const auto unusable = probe("ftp://127.0.0.1/");
  run(unusable);
  ASSERT_TRUE(unusable->error());
  EXPECT_EQ(unusable->error()->code, HTTPClientErrorBadURL);
}

TEST_F(FRXContentLengthOperationTests, TimeoutThatIsNotPositiveIsNone) {
  ScriptedHTTPClient scripted;
  platform_.httpClient = &scripted;
  const double largest = std::numeric_limits<double>::max();
  for (const double timeout : {0.0, -1.0, -largest, std::numeric_limits<double>::quiet_NaN(), largest,
                               std::numeric_limits<double>::infinity(), 1e300}) {
    const auto operation = probe("http://peer/", timeout);
    EXPECT_EQ(operation->timeout(), timeout > 0 ? timeout : largest);
    run(operation);
    EXPECT_FALSE(scripted.requests().back().inactivityTimeout);
  }
  run(probe("http://peer/", 1.5));
  EXPECT_EQ(scripted.requests().back().inactivityTimeout, 1500ms);
  run(probe("http://peer/", 1e-9));
  EXPECT_EQ(scripted.requests().back().inactivityTimeout, 1ms);
}

TEST_F(FRXContentLengthOperationTests, SilentPeerTimesOut) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  const auto operation = probe(mute.url(), 0.05);
  run(operation);
  ASSERT_TRUE(operation->error());
  EXPECT_EQ(operation->error()->code, HTTPClientErrorTimedOut);
}

TEST_F(FRXContentLengthOperationTests, CancelledBeforeItsStartItEndsWithoutErrorOrRequest) {
  ScriptedHTTPClient scripted;
  platform_.httpClient = &scripted;
  const auto operation = probe("http://peer/");
  operation->cancel();
  OperationQueue queue;
  queue.addOperation(operation);
  awaitEnd(*operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(operation->contentLengthBytes(), 0u);
  EXPECT_EQ(scripted.requestCount(), 0u);
}

TEST_F(FRXContentLengthOperationTests, SecondStartDoesNothing) {
  ScriptedHTTPClient scripted;
  platform_.httpClient = &scripted;
  scripted.hold();
  const auto operation = probe("http://peer/");
  operation->start();
  operation->start();
  EXPECT_FALSE(operation->isFinished());
  scripted.release();
  awaitEnd(*operation);
  operation->start();
  EXPECT_EQ(scripted.requestCount(), 1u);
}

TEST_F(FRXContentLengthOperationTests, CancellingEndsARequestThatIsUnderWay) {
  ScriptedHTTPServer mute([](ScriptedConnection& connection) { connection.stall(); });
  const auto operation = probe(mute.url());
  operation->start();
  ASSERT_TRUE(waitFor([&mute] { return mute.acceptCount() == 1; }, longPatience));
  operation->cancel();
  awaitEnd(*operation);
  ASSERT_TRUE(operation->error());
  EXPECT_EQ(operation->error()->code, HTTPClientErrorCancelled);
  EXPECT_EQ(operation->contentLengthBytes(), 0u);
}

TEST_F(FRXContentLengthOperationTests, ProbesOfOnePeerShareItsConnections) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"));
  for (int i = 0; i < 20; ++i) run(probe(server.url()));
  EXPECT_EQ(server.acceptCount(), 1u);
}

TEST_F(FRXContentLengthOperationTests, ThousandProbesInOneQueueAllEnd) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n"));
  OperationQueue queue;
  std::vector<std::shared_ptr<FRXContentLengthOperation>> probes;
  for (int i = 0; i < 1000; ++i) probes.push_back(probe(server.url("/" + std::to_string(i))));
  for (const auto& operation : probes) queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  for (const auto& operation : probes) {
    ASSERT_FALSE(operation->error()) << operation->error()->localizedDescription;
    EXPECT_EQ(operation->contentLengthBytes(), 3u);
  }
  EXPECT_LE(server.acceptCount(), 64u);
}

}  // namespace
}  // namespace ferrox::test

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Classes/Copy/FRXDownloadOperation.h"
#include "Platform/Base/PosixError.h"
#include "Tests/Classes/Copy/TransferFixture.h"
#include "Tests/Support/BlackHole.h"
#include "Tests/Support/FileSizeLimit.h"
#include "Tests/Support/OpenDescriptors.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/SmallDisk.h"

namespace ferrox::test {
namespace {

using Names = std::vector<std::string>;

constexpr const char* domain = "com.ferrox.download.FRXDownloadOperation.ErrorDomain";
constexpr std::string_view before = "what stood there before";

class FRXDownloadOperationFailureTests : public TransferFixture {
 protected:
  FRXDownloadOperationFailureTests() { folder_.write("target", before); }

  std::shared_ptr<FRXDownloadOperation> failedDownload(const std::string& url) {
    return failed(download(url));
  }
  std::shared_ptr<FRXDownloadOperation> failed(std::shared_ptr<FRXDownloadOperation> operation) {
    const auto listener = std::make_shared<RecordingDownloadListener>();
    operation->setDelegate(listener);
    run(operation);
    EXPECT_TRUE(waitFor([&listener] { return !listener->events().empty(); }, longPatience));
    EXPECT_TRUE(operation->error());
    if (operation->error()) {
      EXPECT_EQ(listener->events(), Names{"failure " + std::to_string(operation->error()->code)});
    }
    EXPECT_EQ(operation->sizeInBytes(), 0u);
    EXPECT_EQ(contentOf(path()), before);
    EXPECT_EQ(namesIn(folder_.path()), Names{"target"});
    return operation;
  }
  /// A server that sends this and ends the connection, in an orderly way or with a reset.
  std::shared_ptr<FRXDownloadOperation> failedDownloadOf(const std::string& bytes, bool resets = false) {
    ScriptedHTTPServer server([&bytes, resets](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(bytes);
      if (resets) connection.reset();
    });
    return failedDownload(server.url());
  }
};

TEST_F(FRXDownloadOperationFailureTests, EveryStatusBut200IsAFailureThatNamesIt) {
  for (const int status : {204, 206, 301, 404, 416, 500}) {
    const std::string body = status == 204 ? "" : "Content-Length: 4\r\n\r\nbody";
    const auto operation = failedDownloadOf("HTTP/1.1 " + std::to_string(status) + " Text\r\n" + body +
                                            (body.empty() ? "\r\n" : ""));
    EXPECT_EQ(operation->error(),
              (FRXError{domain, -1, "http call failed with status code " + std::to_string(status)}));
    EXPECT_EQ(operation->bytesReceived(), 0u);
  }
}

TEST_F(FRXDownloadOperationFailureTests, ConnectionOfARefusalIsUsedAgain) {
  ScriptedHTTPServer server(
      ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("gone", "HTTP/1.1 404 Not Found")));
  for (int i = 0; i < 10; ++i) failedDownload(server.url());
  EXPECT_EQ(server.acceptCount(), 1u);
}

TEST_F(FRXDownloadOperationFailureTests, LongBodyOfARefusalIsNotReadToItsEnd) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 206 Partial Content\r\n\r\n");
    while (connection.send(std::string(100000, 'x'))) {
    }
  });
  EXPECT_EQ(failedDownload(server.url())->error(),
            (FRXError{domain, -1, "http call failed with status code 206"}));
}

TEST_F(FRXDownloadOperationFailureTests, BodyThatIsCutOffIsATransportError) {
  for (const std::size_t size : {std::size_t{100}, std::size_t{1} << 20}) {
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(size) + "\r\n\r\n";
    for (const bool resets : {false, true}) {
      const auto operation = failedDownloadOf(head + std::string(size - 1, 'x'), resets);
      EXPECT_EQ(operation->error()->domain, HTTPClientErrorDomain);
    }
  }
  const auto chunked =
      failedDownloadOf("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabcde\r\n");
  EXPECT_EQ(chunked->error()->domain, HTTPClientErrorDomain);
  EXPECT_EQ(failedDownloadOf("HTTP/1.1 200 OK\r\nContent-Le")->error()->domain, HTTPClientErrorDomain);
}

TEST_F(FRXDownloadOperationFailureTests, RefusedConnectionIsATransportError) {
  const auto operation = failedDownload("http://127.0.0.1:" + std::to_string(unusedPort()) + "/");
  EXPECT_EQ(operation->error()->domain, HTTPClientErrorDomain);
  EXPECT_EQ(failedDownload("not a url")->error()->code, HTTPClientErrorBadURL);
}

TEST_F(FRXDownloadOperationFailureTests, StalledBodyTimesOutAndADrippingOneDoesNot) {
  ScriptedHTTPServer stalling([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + std::string(100000, 'x'));
    connection.stall();
  });
  EXPECT_EQ(failed(download(stalling.url(), 0.05))->error()->code, HTTPClientErrorTimedOut);
  ScriptedHTTPServer dripping([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n");
    connection.drip(std::string(40, 'x'), std::chrono::milliseconds(50));
  });
  // In all it takes longer than its time-out.
  const auto operation = download(dripping.url(), 1.5);
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(operation->sizeInBytes(), 40u);
}

TEST_F(FRXDownloadOperationFailureTests, LengthThatIsNoNumberIsATransportError) {
  const auto operation = failedDownloadOf("HTTP/1.1 200 OK\r\nContent-Length: many\r\n\r\nhello");
  EXPECT_EQ(operation->error()->domain, HTTPClientErrorDomain);
}

TEST_F(FRXDownloadOperationFailureTests, BodyOfAnUnexpectedSizeIsAnErrorWhereOneIsExpected) {
  const auto expecting = [this](std::uint64_t size, const std::string& answer) {
    ScriptedHTTPServer server([&answer](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(answer);
    });
    const auto operation = download(server.url());
    operation->setExpectedSize(size);
    return failed(operation)->error().value();
  };
  const std::string unannounced = "HTTP/1.1 200 OK\r\n\r\n";
  const FRXError tooShort{domain, -1, "the body ended after 5 of 6 bytes"};
  const FRXError tooLong{domain, -1, "the body is longer than the 4 bytes that were expected"};
  EXPECT_EQ(expecting(6, unannounced + "hello"), tooShort);
  EXPECT_EQ(expecting(6, ScriptedHTTPServer::answer("hello")), tooShort);
  EXPECT_EQ(expecting(4, unannounced + "hello"), tooLong);
  EXPECT_EQ(expecting(4, ScriptedHTTPServer::answer("hello")), tooLong);
  EXPECT_EQ(expecting(4, ScriptedHTTPServer::answer("gone?", "HTTP/1.1 404 Not Found")).localizedDescription,
            "http call failed with status code 404");
}

TEST_F(FRXDownloadOperationFailureTests, EndlessBodyIsCutWhereASizeIsExpected) {
  ScriptedHTTPServer server([](ScriptedConnection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(std::string(100000, 'x'))) {
    }
  });
  const auto operation = download(server.url());
  operation->setExpectedSize(1'000'000);
  EXPECT_EQ(failed(operation)->error()->domain, domain);
}

TEST_F(FRXDownloadOperationFailureTests, ExpectedSizeThatComesIsNoError) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  const auto operation = download(server.url());
  operation->setExpectedSize(5);
  run(operation);
  EXPECT_FALSE(operation->error());
}

TEST_F(FRXDownloadOperationFailureTests, ShortAnswerToARangeIsWrittenAsItCame) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("short")));
  const auto operation = download(server.url());
  operation->setContentRange(0, 1000);
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(operation->sizeInBytes(), 5u);
}

TEST_F(FRXDownloadOperationFailureTests, DiskThatRefusesTheBodyLeavesTheTargetAsItWas) {
  for (const std::size_t size : {std::size_t{60'000}, std::size_t{600'000}}) {
    for (const bool announced : {true, false}) {
      const std::string body(size, 'x');
      ScriptedHTTPServer server([&body, announced](ScriptedConnection& connection) {
        connection.readRequest();
        connection.send(announced ? ScriptedHTTPServer::answer(body) : "HTTP/1.1 200 OK\r\n\r\n" + body);
      });
      const FileSizeLimit full(50'000);
      const auto operation = failedDownload(server.url());
      EXPECT_EQ(operation->error()->domain, PosixErrorDomain);
      EXPECT_EQ(operation->error()->code, EFBIG);
    }
  }
}

TEST_F(FRXDownloadOperationFailureTests, FullDiskLeavesTheTargetAsItWas) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a small disk needs root";
  TemporaryDirectory mountPoint;
  const SmallDisk small(mountPoint.path() / "disk");
  ASSERT_TRUE(small.isMounted()) << "a machine for tests lets root mount";
  const auto& disk = small.path();
  std::ofstream(disk / "target") << before;
  for (const bool announced : {true, false}) {
    const std::string body(3 << 20, 'x');
    ScriptedHTTPServer server([&body, announced](ScriptedConnection& connection) {
      connection.readRequest();
      connection.send(announced ? ScriptedHTTPServer::answer(body) : "HTTP/1.1 200 OK\r\n\r\n" + body);
    });
    const auto operation =
        std::make_shared<FRXDownloadOperation>(server.url(), disk / "target", 0.0, platform_);
    run(operation);
    ASSERT_TRUE(operation->error());
    EXPECT_EQ(operation->error()->domain, PosixErrorDomain);
    EXPECT_EQ(operation->error()->code, ENOSPC);
    EXPECT_EQ(contentOf(disk / "target"), before);
    EXPECT_EQ(namesIn(disk), Names{"target"});
  }
}

TEST_F(FRXDownloadOperationFailureTests, TargetThatCannotBeWrittenIsASystemError) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  std::filesystem::create_directory(folder_.path() / "folder");
  const auto codeFor = [&](const std::string& target) {
    const auto operation = std::make_shared<FRXDownloadOperation>(server.url(), target, 0.0, platform_);
    run(operation);
    EXPECT_EQ(operation->error().value_or(FRXError{}).domain, PosixErrorDomain) << target;
    return operation->error().value_or(FRXError{}).code;
  };
  EXPECT_EQ(codeFor(path("missing/target")), ENOENT);
  EXPECT_EQ(codeFor(path("folder")), EISDIR);
  EXPECT_EQ(codeFor(path("folder/")), EISDIR);
  EXPECT_EQ(codeFor(path("target/below")), ENOTDIR);
  EXPECT_EQ(codeFor(""), EISDIR);
  EXPECT_EQ(codeFor("/dev/null"), EOPNOTSUPP);
  EXPECT_EQ(codeFor(path(std::string(300, 'n'))), ENAMETOOLONG);
  EXPECT_EQ(codeFor(path(std::string("nul\0tail", 8))), EINVAL);
  // No file can be made there, not even by root.
  EXPECT_NE(codeFor("/sys/kernel/ferrox-test"), 0);
  EXPECT_EQ(namesIn(folder_.path()), (Names{"folder", "target"}));
  EXPECT_TRUE(namesIn(folder_.path() / "folder").empty());
}

TEST_F(FRXDownloadOperationFailureTests, NameAsLongAsAFileSystemAllowsCanBeWritten) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  const auto target = path(std::string(255, 'n'));
  const auto operation = std::make_shared<FRXDownloadOperation>(server.url(), target, 0.0, platform_);
  run(operation);
  EXPECT_FALSE(operation->error());
  EXPECT_EQ(contentOf(target), "hello");
}

TEST_F(FRXDownloadOperationFailureTests, SymbolicLinkAtTheTargetIsReplacedAndNotFollowed) {
  TemporaryDirectory elsewhere;
  const auto victim = elsewhere.write("victim", "untouched");
  std::filesystem::remove(path());
  std::filesystem::create_symlink(victim, path());
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  run(download(server.url()));
  EXPECT_EQ(contentOf(victim), "untouched");
  EXPECT_FALSE(std::filesystem::is_symlink(path()));
  EXPECT_EQ(contentOf(path()), "hello");
}

TEST_F(FRXDownloadOperationFailureTests, DirectoryThatCannotBeOpenedIsTheFailure) {
  ScriptedHTTPServer server(ScriptedHTTPServer::answeringWith(ScriptedHTTPServer::answer("hello")));
  const auto operation = download(server.url());
  const FRXError refusal{"test", 7, "leads outside"};
  operation->setDirectory([&refusal](FRXError* error) {
    setError(error, refusal);
    return DirectoryHandle();
  });
  EXPECT_EQ(failed(operation)->error(), refusal);
}

TEST_F(FRXDownloadOperationFailureTests, NoDescriptorIsLeftOpen) {
  const std::size_t open = openDescriptorCount();
  {
    ScriptedResolver resolver;
    const auto client = HTTPClient::make(resolver);
    platform_.httpClient = client.get();
    failedDownloadOf("HTTP/1.1 200 OK\r\nContent-Length: 200000\r\n\r\n" + std::string(100000, 'x'));
    failedDownloadOf(ScriptedHTTPServer::answer("gone", "HTTP/1.1 404 Not Found"));
    const FileSizeLimit full(50'000);
    failedDownloadOf(ScriptedHTTPServer::answer(std::string(100000, 'x')));
  }
  EXPECT_EQ(openDescriptorCount(), open);
}

}  // namespace
}  // namespace ferrox::test

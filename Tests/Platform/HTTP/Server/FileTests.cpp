#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "Platform/HTTP/Server/HTTPFileResponse.h"
#include "Tests/Platform/HTTP/Server/ServerFixture.h"

namespace ferrox::test {
namespace {

using namespace std::chrono_literals;

class TypedFile : public HTTPFileResponse {
 public:
  using HTTPFileResponse::HTTPFileResponse;
  HTTPHeaders httpHeaders() const override { return {{"Content-Type", "video/quicktime"}}; }
};

class FileTest : public ServerTest {
 protected:
  void serve(const std::string& path, const std::string& file, bool deferred = true) {
    script->routes[path] = [=](HTTPConnection&, std::string_view) -> std::unique_ptr<HTTPResponse> {
      if (!deferred) return std::make_unique<TypedFile>(file);
      return std::make_unique<HTTPDeferredResponse>([file] { return std::make_unique<TypedFile>(file); });
    };
  }
  std::optional<RawResponse> get(const std::string& path, const std::string& fields = "",
                                 const std::string& method = "GET") {
    RawSocket client = connect();
    EXPECT_TRUE(client.send(method + " " + path + " HTTP/1.1\r\nHost: a\r\n" + fields + "\r\n"));
    return client.readResponse(method == "HEAD");
  }
  TemporaryFolder folder;
};

TEST_F(FileTest, EverySizeArrivesWhole) {
  const std::vector<std::size_t> sizes = {
      0, 1, 65535, 65536, 65537, 131072, 131073, 1 << 20, 1179648, (1 << 20) + 65537, 5000001};
  for (const std::size_t size : sizes) {
    const std::string file = folder.write(std::to_string(size), patternOf(size));
    serve("/d" + std::to_string(size), file);
    serve("/n" + std::to_string(size), file, false);
  }
  start();
  for (const std::size_t size : sizes) {
    for (const char* kind : {"/d", "/n"}) {
      const auto response = get(kind + std::to_string(size));
      ASSERT_TRUE(response) << kind << size;
      EXPECT_EQ(response->status, 200);
      EXPECT_TRUE(response->body == patternOf(size)) << kind << size;
      EXPECT_EQ(response->field("accept-ranges"), "bytes");
      EXPECT_TRUE(response->field("last-modified").ends_with(" GMT"));
    }
  }
}

TEST_F(FileTest, PipelinedFilesAndSmallAnswersKeepTheirOrder) {
  serve("/file", folder.write("f", patternOf(3000000)));
  start();
  RawSocket client = connect();
  std::string requests;
  for (int i = 0; i < 3; ++i) {
    requests += "GET /small HTTP/1.1\r\nHost: a\r\n\r\nGET /file HTTP/1.1\r\nHost: a\r\n\r\n";
  }
  ASSERT_TRUE(client.send(requests));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(client.readResponse()->body, "{\"ok\":true}");
    const auto file = client.readResponse();
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->body == patternOf(3000000));
  }
}

TEST_F(FileTest, HeadAnnouncesTheLengthAndReadsNothing) {
  serve("/file", folder.write("f", patternOf(3000000)));
  start();
  RawSocket client = connect();
  ASSERT_TRUE(client.send("HEAD /file HTTP/1.1\r\nHost: a\r\n\r\nGET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(client.readResponse(true)->field("content-length"), "3000000");
  EXPECT_EQ(client.readResponse()->body, "{\"ok\":true}");
}

TEST_F(FileTest, SingleRanges) {
  const std::string bytes = patternOf(300000);
  serve("/file", folder.write("f", bytes));
  start();
  const auto check = [&](const std::string& range, std::size_t first, std::size_t length) {
    const auto response = get("/file", "Range: " + range + "\r\n");
    ASSERT_TRUE(response) << range;
    EXPECT_EQ(response->status, 206) << range;
    EXPECT_EQ(response->field("content-range"),
              "bytes " + std::to_string(first) + "-" + std::to_string(first + length - 1) + "/300000");
    EXPECT_EQ(response->field("content-type"), "video/quicktime");
    EXPECT_TRUE(response->body == bytes.substr(first, length)) << range;
  };
  check("bytes=0-0", 0, 1);
  check("bytes=10-20", 10, 11);
  check("bytes=299999-", 299999, 1);
  check("bytes=-5", 299995, 5);
  check("bytes=-400000", 0, 300000);
  check("bytes=100000-999999999999999999999999", 100000, 200000);
  check("Bytes= 1-2 ", 1, 2);
  check("bytes=1-2,400000-", 1, 2);
}

TEST_F(FileTest, RangesThatCannotBeMetOrUnderstood) {
  serve("/file", folder.write("f", patternOf(1000)));
  serve("/empty", folder.write("e", ""));
  start();
  for (const char* range : {"bytes=1000-", "bytes=1000-2000,5000-", "bytes=-0"}) {
    const auto response = get("/file", std::string("Range: ") + range + "\r\n");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 416) << range;
    EXPECT_EQ(response->field("content-range"), "bytes */1000");
    EXPECT_EQ(response->body, "");
  }
  EXPECT_EQ(get("/empty", "Range: bytes=0-\r\n")->status, 416);
  for (const char* range : {"bytes=2-1", "bytes=a-b", "lines=1-2", "bytes", "bytes=", "bytes=1",
                            "bytes=1-2-3", "bytes=0-999,0-999"}) {
    const auto response = get("/file", std::string("Range: ") + range + "\r\n");
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, 200) << range;
    EXPECT_EQ(response->body.size(), 1000U);
  }
  EXPECT_EQ(get("/file", "Range: bytes=0-1\r\nRange: bytes=2-3\r\n")->status, 200);
  EXPECT_EQ(get("/file", "Range: bytes=0-1\r\n", "HEAD")->status, 200);
}

TEST_F(FileTest, SeveralRangesComeAsMultipart) {
  const std::string bytes = patternOf(400000);
  serve("/file", folder.write("f", bytes));
  start();
  const auto response = get("/file", "Range: bytes=0-9, 100000-299999, -7\r\n");
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 206);
  const std::string type = response->field("content-type");
  ASSERT_TRUE(type.starts_with("multipart/byteranges; boundary=")) << type;
  EXPECT_EQ(response->field("content-range"), "");
  const std::string boundary = type.substr(type.find('=') + 1);
  const auto part = [&](const std::string& range, std::size_t first, std::size_t length) {
    return "--" + boundary + "\r\nContent-Type: video/quicktime\r\nContent-Range: bytes " + range +
           "/400000\r\n\r\n" + bytes.substr(first, length) + "\r\n";
  };
  EXPECT_TRUE(response->body == part("0-9", 0, 10) + part("100000-299999", 100000, 200000) +
                                    part("399993-399999", 399993, 7) + "--" + boundary + "--\r\n");
}

TEST_F(FileTest, TooManyRangesAreIgnored) {
  serve("/file", folder.write("f", patternOf(1000)));
  start();
  std::string most = "Range: bytes=0-0", tooMany;
  for (int i = 1; i < 64; ++i) most += "," + std::to_string(2 * i) + "-" + std::to_string(2 * i);
  tooMany = most + ",999-999";
  EXPECT_EQ(get("/file", most + "\r\n")->status, 206);
  EXPECT_EQ(get("/file", tooMany + "\r\n")->status, 200);
}

TEST_F(FileTest, IfRangeHoldsForTheSameFileOnly) {
  const std::string file = folder.write("f", patternOf(1000));
  const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), old, 0), 0);
  serve("/file", file);
  start();
  const std::string modified = get("/file")->field("last-modified");
  EXPECT_EQ(modified, "Sun, 09 Sep 2001 01:46:40 GMT");
  EXPECT_EQ(get("/file", "Range: bytes=0-1\r\nIf-Range: " + modified + "\r\n")->status, 206);
  EXPECT_EQ(get("/file", "Range: bytes=0-1\r\nIf-Range: Sun, 09 Sep 2001 01:46:41 GMT\r\n")->status, 200);
  EXPECT_EQ(get("/file", "Range: bytes=0-1\r\nIf-Range: \"tag\"\r\n")->status, 200);
}

TEST_F(FileTest, ARestrictedFileKeepsItsOwnArithmetic) {
  const std::string file = folder.write("f", patternOf(100));
  script->routes["/part"] = [file](HTTPConnection& connection, std::string_view) {
    auto response = std::make_unique<HTTPFileResponse>(file);
    const auto parameters = parseGetParams(connection.request()->uri());
    response->restrictTo(std::stoull(parameters.at("from")), std::stoull(parameters.at("to")));
    return response;
  };
  start();
  const auto part = [&](const std::string& from, const std::string& to) {
    return get("/part?from=" + from + "&to=" + to, "Range: bytes=1-2\r\n");
  };
  EXPECT_EQ(part("10", "20")->body, patternOf(100).substr(10, 10));
  EXPECT_EQ(part("10", "20")->status, 200);
  EXPECT_EQ(part("90", "200")->body, patternOf(100).substr(90));
  EXPECT_EQ(part("20", "10")->body, "");
  EXPECT_EQ(part("200", "300")->body, "");
  EXPECT_EQ(part("10", "20")->field("content-range"), "");
}

TEST_F(FileTest, WhatIsNoRegularFileIsMissing) {
  ASSERT_EQ(::mkfifo((folder.path() / "fifo").c_str(), 0600), 0);
  serve("/fifo", (folder.path() / "fifo").string());
  serve("/folder", folder.path().string());
  serve("/none", (folder.path() / "none").string());
  start();
  for (const char* path : {"/fifo", "/folder", "/none"}) EXPECT_EQ(get(path)->status, 404) << path;
}

/// Truncates the file while it is being sent, past what the socket buffers can hold.
TEST_F(FileTest, ATruncatedFileEndsItsConnectionOnly) {
  const std::size_t size = 32 << 20;
  const std::string file = folder.write("f", "");
  ASSERT_EQ(::truncate(file.c_str(), size), 0);
  serve("/file", file);
  start();
  for (const std::size_t rest : {std::size_t{0}, std::size_t{4096}, (size / 2) + 5, size - 1}) {
    ASSERT_EQ(::truncate(file.c_str(), size), 0);
    RawSocket client(server.port(), false, 65536);
    ASSERT_TRUE(client.send("GET /file HTTP/1.1\r\nHost: a\r\n\r\n"));
    ASSERT_EQ(client.read(100000).size(), 100000U);
    ASSERT_EQ(::truncate(file.c_str(), static_cast<off_t>(rest)), 0);
    EXPECT_LT(client.readAll().size() + 100000, size) << "cut at " << rest << " and yet complete";
    EXPECT_EQ(get("/small")->status, 200);
  }
}

/// SIGPIPE is as deadly here as in any host that does not think of it.
TEST_F(FileTest, AClientThatGoesDuringAFileEndsItsConnectionOnly) {
  serve("/file", folder.write("f", patternOf(4 << 20)));
  start();
  for (int i = 0; i < 100; ++i) {
    RawSocket client(server.port(), false, 65536);
    ASSERT_TRUE(client.send("GET /file HTTP/1.1\r\nHost: a\r\n\r\n"));
    EXPECT_EQ(client.read(static_cast<std::size_t>(i) * 4000).size(), static_cast<std::size_t>(i) * 4000);
    i % 2 == 0 ? client.reset() : client.close();
  }
  EXPECT_EQ(get("/small")->status, 200);
}

TEST_F(FileTest, ManyClientsReadALargeFileAtOnce) {
  const std::string bytes = patternOf(20 << 20);
  serve("/file", folder.write("f", bytes));
  start();
  std::vector<std::future<bool>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::async(std::launch::async, [&] {
      const auto response = get("/file");
      return response && response->body == bytes;
    }));
  }
  for (auto& client : clients) EXPECT_TRUE(client.get());
}

TEST_F(FileTest, DeferredAnswersRunElsewhereAndDoNotHoldOthersUp) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<std::thread::id> networkThread, poolThread;
  script->routes["/slow"] = [&](HTTPConnection&, std::string_view) {
    networkThread = std::this_thread::get_id();
    return std::make_unique<HTTPDeferredResponse>([&, released] {
      poolThread = std::this_thread::get_id();
      released.wait();
      return std::make_unique<HTTPDataResponse>("late");
    });
  };
  start();
  RawSocket slow = connect();
  ASSERT_TRUE(slow.send("GET /slow HTTP/1.1\r\nHost: a\r\n\r\nGET /small HTTP/1.1\r\nHost: a\r\n\r\n"));
  EXPECT_EQ(get("/small")->status, 200);
  release.set_value();
  EXPECT_EQ(slow.readResponse()->body, "late");
  EXPECT_EQ(slow.readResponse()->body, "{\"ok\":true}");
  EXPECT_NE(networkThread.load(), poolThread.load());
}

TEST_F(FileTest, WhatCanBeAnsweredAtOnceIsAnsweredWhereItArrived) {
  std::atomic<std::thread::id> networkThread, answerThread;
  script->routes["/cached"] = [&](HTTPConnection&, std::string_view) {
    networkThread = std::this_thread::get_id();
    return std::make_unique<HTTPDeferredResponse>(
        [] { return std::make_unique<HTTPDataResponse>("fetched"); },
        [&] {
          answerThread = std::this_thread::get_id();
          return std::make_unique<HTTPDataResponse>("kept");
        });
  };
  script->routes["/absent"] = [&](HTTPConnection&, std::string_view) {
    return std::make_unique<HTTPDeferredResponse>(
        [] { return std::make_unique<HTTPDataResponse>("fetched"); }, [] { return nullptr; });
  };
  script->routes["/throws"] = [](HTTPConnection&, std::string_view) {
    return std::make_unique<HTTPDeferredResponse>(
        [] { return std::make_unique<HTTPDataResponse>("fetched"); },
        []() -> std::unique_ptr<HTTPResponse> { throw std::runtime_error("no"); });
  };
  start();
  EXPECT_EQ(get("/cached")->body, "kept");
  EXPECT_EQ(networkThread.load(), answerThread.load());
  EXPECT_EQ(get("/absent")->body, "fetched");
  EXPECT_EQ(get("/throws")->status, 500);
}

TEST_F(FileTest, AFailingOrEmptyMakerIsAnAnswerToo) {
  script->routes["/throws"] = [](HTTPConnection&, std::string_view) {
    return std::make_unique<HTTPDeferredResponse>(
        []() -> std::unique_ptr<HTTPResponse> { throw std::runtime_error("no"); });
  };
  script->routes["/nothing"] = [](HTTPConnection&, std::string_view) {
    return std::make_unique<HTTPDeferredResponse>([] { return nullptr; });
  };
  script->routes["/handler"] = [](HTTPConnection&, std::string_view) -> std::unique_ptr<HTTPResponse> {
    throw std::runtime_error("no");
  };
  start();
  EXPECT_EQ(get("/throws")->status, 500);
  EXPECT_EQ(get("/nothing")->status, 404);
  EXPECT_EQ(get("/handler")->status, 500);
  EXPECT_EQ(get("/small")->status, 200);
}

TEST_F(FileTest, StoppingDuringTransfersAndDeferredAnswersReturns) {
  serve("/file", folder.write("f", patternOf(40 << 20)));
  std::promise<void> entered;
  script->routes["/slow"] = [&](HTTPConnection&, std::string_view) {
    return std::make_unique<HTTPDeferredResponse>([&] {
      entered.set_value();
      std::this_thread::sleep_for(50ms);
      return std::make_unique<HTTPDataResponse>("late");
    });
  };
  start();
  RawSocket loading(server.port(), false, 4096), waiting = connect(), idle = connect();
  ASSERT_TRUE(loading.send("GET /file HTTP/1.1\r\nHost: a\r\n\r\n"));
  ASSERT_EQ(loading.read(1000).size(), 1000U);
  ASSERT_TRUE(waiting.send("GET /slow HTTP/1.1\r\nHost: a\r\n\r\n"));
  entered.get_future().wait();
  server.stop();
  EXPECT_FALSE(server.isRunning());
  EXPECT_TRUE(idle.isClosedByPeer());
  EXPECT_TRUE(waiting.isClosedByPeer());
  start();
  EXPECT_EQ(get("/small")->status, 200);
}

}  // namespace
}  // namespace ferrox::test

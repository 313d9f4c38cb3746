// A loop, a client and a server that answers as the test says, for the downloads that report on the main
// loop.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/HTTP/Client/HTTPClient.h"
#include "Platform/PlatformServices.h"
#include "Platform/RunLoop/RunLoop.h"
#include "Tests/Support/RecordingLogSink.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

/// What the server was asked, request by request.
struct SeenRequest {
  std::string head;
  std::size_t index = 0;

  /// Without the header's name; empty when there was none.
  std::string range() const {
    constexpr std::string_view name = "\r\nRange: ";
    const auto at = head.find(name);
    if (at == std::string::npos) return {};
    const auto begin = at + name.size();
    return head.substr(begin, head.find("\r\n", begin) - begin);
  }
};

class DownloadFixture : public ::testing::Test {
 protected:
  using Answer = std::function<void(const SeenRequest&, ScriptedConnection&)>;

  static constexpr std::chrono::seconds longPatience{30};

  /// While the members of the test's own class are still there: the server's threads may use them.
  void TearDown() override {
    client_.reset();
    server_.reset();
  }

  /// Answers every request of every connection with `answer`, until a connection ends. The server outlives
  /// the test's body, so `answer` must not borrow anything from there.
  void serve(Answer answer) {
    server_ = std::make_unique<ScriptedHTTPServer>([this, answer](ScriptedConnection& connection) {
      while (true) {
        SeenRequest request{connection.readRequest(), 0};
        if (request.head.empty()) return;
        {
          const std::lock_guard lock(mutex_);
          request.index = requests_.size();
          requests_.push_back(request);
        }
        answer(request, connection);
      }
    });
  }
  /// Answers "bytes=A-B" and "bytes=A-" of `content` as HTTP has it.
  static void answerRange(const std::string& content, const SeenRequest& request,
                          ScriptedConnection& connection) {
    const std::string range = request.range();
    if (range.empty()) {
      connection.send(ScriptedHTTPServer::answer(content));
      return;
    }
    const auto dash = range.find('-');
    const auto first = std::stoull(range.substr(6, dash - 6));
    const auto last = dash + 1 < range.size() ? std::stoull(range.substr(dash + 1)) : content.size();
    if (first >= content.size()) {
      connection.send(ScriptedHTTPServer::answer("", "HTTP/1.1 416 Range Not Satisfiable"));
      return;
    }
    connection.send(ScriptedHTTPServer::answer(std::string_view(content).substr(first, last - first + 1),
                                               "HTTP/1.1 206 Partial Content"));
  }
  static std::string head(std::size_t length, std::string_view statusLine = "HTTP/1.1 206 Partial Content") {
    return std::string(statusLine) + "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
  }

  std::vector<std::string> ranges() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& request : requests_) out.push_back(request.range());
    return out;
  }
  std::size_t requestCount() const {
    const std::lock_guard lock(mutex_);
    return requests_.size();
  }

  bool wait(const std::function<bool()>& done) { return waitFor(loop_, done, longPatience); }
  /// Runs what is on its way. Only for showing that nothing follows: no passing test depends on its length.
  void settle() {
    waitFor(
        loop_, [] { return false; }, std::chrono::milliseconds(60));
  }

  PlatformServices platform() {
    PlatformServices services;
    services.mainLoop = &loop_;
    services.httpClient = client_.get();
    return services;
  }
  std::string path(std::string_view name = "file.mov") const { return (directory_.path() / name).string(); }
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string content() const { return contentOf(path()); }

  LogRecording log_;
  TemporaryDirectory directory_;
  ScriptedResolver resolver_;
  RunLoop loop_;
  mutable std::mutex mutex_;
  std::vector<SeenRequest> requests_;
  std::unique_ptr<ScriptedHTTPServer> server_;
  std::unique_ptr<HTTPClient> client_ = HTTPClient::make(resolver_);
};

}  // namespace ferrox::test

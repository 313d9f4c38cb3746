// A client and a server that does exactly what the test scripts.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocketClient.h"
#include "Tests/Platform/WebSocket/RecordingDelegate.h"
#include "Tests/Platform/WebSocket/ScriptedPeer.h"
#include "Tests/Support/ScriptedHTTPServer.h"
#include "Tests/Support/ScriptedResolver.h"
#include "Tests/Support/WaitFor.h"

namespace ferrox::test {

class ScriptedClientTest : public ::testing::Test {
 protected:
  ScriptedClientTest() { loop_.runPending(); }
  ~ScriptedClientTest() override {
    clients_.clear();
    server_.reset();
  }

  /// Each connection runs the script on a thread of its own.
  void serve(std::function<void(ScriptedPeer&, ScriptedConnection&)> script,
             const std::string& address = "127.0.0.1") {
    server_ = std::make_unique<ScriptedHTTPServer>(
        [script = std::move(script)](ScriptedConnection& connection) {
          ScriptedPeer peer(connection);
          script(peer, connection);
        },
        address);
  }
  std::string url(const std::string& host = "127.0.0.1") const {
    return "ws://" + host + ":" + std::to_string(server_->port()) + "/socket";
  }
  void open(const std::string& where) {
    request_.url = where;
    FRXError error;
    clients_.push_back(WebSocketClient::make(request_, resolver_, loop_, &error));
    ASSERT_TRUE(clients_.back()) << error.localizedDescription;
    delegates_.push_back(std::make_shared<RecordingDelegate>(loop_));
    clients_.back()->setDelegate(delegates_.back());
    clients_.back()->open();
  }
  void open() { open(url()); }
  void openAndWait() {
    open();
    ASSERT_TRUE(wait([&] { return delegate().opened == 1; }));
  }
  WebSocketClient& client() { return *clients_.back(); }
  RecordingDelegate& delegate() { return *delegates_.back(); }
  bool wait(const std::function<bool()>& done) { return waitFor(loop_, done); }
  bool waitForEnd() {
    return wait([&] { return delegate().hasEnded(); });
  }
  /// For what scripts have to tell.
  template <typename Change>
  void note(const Change& change) {
    const std::lock_guard lock(mutex_);
    change();
  }

  using Closes = std::vector<RecordingDelegate::Close>;

  RunLoop loop_;
  ScriptedResolver resolver_;
  WebSocketClientRequest request_;
  std::mutex mutex_;
  std::unique_ptr<ScriptedHTTPServer> server_;
  std::vector<std::shared_ptr<WebSocketClient>> clients_;
  std::vector<std::shared_ptr<RecordingDelegate>> delegates_;
};

}  // namespace ferrox::test

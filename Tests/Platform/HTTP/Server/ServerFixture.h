// A running server whose answers the test scripts.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "Platform/HTTP/Server/HTTPConnection.h"
#include "Platform/HTTP/Server/HTTPDataResponse.h"
#include "Platform/HTTP/Server/HTTPServer.h"
#include "Platform/WebSocket/WebSocket.h"
#include "Tests/Support/RawSocket.h"

namespace ferrox::test {

/// What the connections of one server do. Filled before the server starts.
struct Script {
  using Respond = std::function<std::unique_ptr<HTTPResponse>(HTTPConnection&, std::string_view path)>;
  /// Every path under which something is found, whatever the query.
  std::map<std::string, Respond, std::less<>> routes;
  std::string methods = "GET, HEAD, POST";
  std::function<std::shared_ptr<WebSocket>(std::string_view path, std::shared_ptr<WebSocketTransport>)>
      webSocket;
};

class ScriptedConnection : public HTTPConnection {
 public:
  explicit ScriptedConnection(std::shared_ptr<const Script> script) : script_(std::move(script)) {}

  bool supportsMethod(std::string_view method, std::string_view) override {
    return (", " + script_->methods + ",").find(" " + std::string(method) + ",") != std::string::npos;
  }
  std::string allowedMethods(std::string_view) override { return script_->methods; }
  std::unique_ptr<HTTPResponse> httpResponseForMethod(std::string_view, std::string_view path) override {
    const auto route = script_->routes.find(path.substr(0, path.find('?')));
    return route == script_->routes.end() ? nullptr : route->second(*this, path);
  }
  std::shared_ptr<WebSocket> webSocketForURI(std::string_view path,
                                             std::shared_ptr<WebSocketTransport> transport) override {
    return script_->webSocket ? script_->webSocket(path, std::move(transport)) : nullptr;
  }

 private:
  std::shared_ptr<const Script> script_;
};

class ServerTest : public ::testing::Test {
 protected:
  ServerTest() {
    answerWith("/small", "{\"ok\":true}");
    script->routes["/echo"] = [](HTTPConnection& connection, std::string_view) {
      return std::make_unique<HTTPDataResponse>(connection.body());
    };
  }

  void answerWith(const std::string& path, std::string body) {
    script->routes[path] = [body = std::move(body)](HTTPConnection&, std::string_view) {
      return std::make_unique<HTTPDataResponse>(body);
    };
  }

  void start() {
    server.setConnectionClass([script = script] { return std::make_unique<ScriptedConnection>(script); });
    server.setLimits(limits);
    FRXError error;
    ASSERT_TRUE(server.start(&error)) << error.localizedDescription;
  }

  RawSocket connect() {
    RawSocket socket(server.port());
    EXPECT_TRUE(socket.isOpen());
    return socket;
  }

  std::shared_ptr<Script> script = std::make_shared<Script>();
  HTTPServerLimits limits;
  HTTPServer server{nullptr};
};

/// A folder that goes away with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "frx-test-XXXXXX").string();
    path_ = ::mkdtemp(name.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string write(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = path_ / name;
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// Bytes of which every stretch is recognisable.
inline std::string patternOf(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 31 + i / 251) & 0xff);
  return bytes;
}

}  // namespace ferrox::test

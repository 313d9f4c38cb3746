// A client on the command line: connects to a URL, obeys lines of stdin, and tells every event as a line.
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "Platform/RunLoop/RunLoop.h"
#include "Platform/WebSocket/WebSocketClient.h"
#include "Tests/Support/ScriptedResolver.h"

namespace {

using namespace ferrox;

void tell(const std::string& line) { std::cout << line << std::endl; }

class Teller : public WebSocketClientDelegate {
 public:
  explicit Teller(RunLoop& loop) : loop_(loop) {}
  void webSocketDidOpen(WebSocketClient&) override { tell("open"); }
  void webSocketDidFailWithError(WebSocketClient&, const FRXError& error) override {
    tell("fail " + std::to_string(error.code) + " " + error.localizedDescription);
    loop_.stop();
  }
  void webSocketDidCloseWithCode(WebSocketClient&, int code, const std::string& reason,
                                 bool wasClean) override {
    tell("close " + std::to_string(code) + " " + (wasClean ? "clean" : "unclean") + " " + reason);
    loop_.stop();
  }
  void webSocketDidReceiveMessage(WebSocketClient&, std::string_view text) override {
    tell("text " + std::to_string(text.size()) + " " + std::string(text.substr(0, 200)));
  }

 private:
  RunLoop& loop_;
};

/// "send TEXT", "fill COUNT" (a text of that many bytes), "burst COUNT" (numbered texts in one turn),
/// "check", "close CODE REASON".
void obey(WebSocketClient& client, const std::string& line) {
  const auto space = line.find(' ');
  const std::string verb = line.substr(0, space);
  const std::string rest = space == std::string::npos ? std::string() : line.substr(space + 1);
  if (verb == "send") client.send(rest);
  if (verb == "fill") client.send(std::string(std::stoul(rest), 'x'));
  if (verb == "check") client.checkNow();
  if (verb == "close") client.close(std::stoi(rest), rest.size() > 5 ? rest.substr(5) : "");
  if (verb != "burst") return;
  for (unsigned long i = 0; i < std::stoul(rest); ++i) client.send("burst " + std::to_string(i));
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  RunLoop loop;
  test::ScriptedResolver resolver;
  WebSocketClientRequest request;
  request.url = arguments[1];
  request.maxMessage = std::size_t{1} << 20;
  request.closeTimeout = std::chrono::seconds(2);
  FRXError error;
  const auto client = WebSocketClient::make(request, resolver, loop, &error);
  if (!client) return tell("refused " + error.localizedDescription), 1;
  const auto teller = std::make_shared<Teller>(loop);
  client->setDelegate(teller);
  loop.post([&] { client->open(); });
  std::thread reader([&] {
    std::string line;
    while (std::getline(std::cin, line)) loop.post([&client, line] { obey(*client, line); });
    loop.stop();
  });
  loop.run();
  // The reader may be waiting for a line that never comes.
  reader.detach();
  std::cout.flush();
  ::_exit(0);
}

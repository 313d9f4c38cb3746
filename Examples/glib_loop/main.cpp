// A node inside a program that a GLib main loop drives, as every GTK application is: the library is one more
// source of it. Every line that is typed goes to all peers, and those of the peers are printed.
#include <glib-unix.h>
#include <glib.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <string>

#include "Classes/Discovery/FRXBrowser.h"
#include "Classes/HTTPServer/FRXServer.h"
#include "Classes/Notifications/FRXNotificationCenter.h"
#include "Classes/WebSockets/FRXWebsocketConnectionManager.h"
#include "Platform/Notifications/NotificationDispatcher.h"
#include "Platform/RunLoop/RunLoop.h"

using namespace ferrox;

namespace {

/// Readable when there is something to do, timers included: nothing else has to be watched.
gboolean driveLibrary(gint, GIOCondition, gpointer) {
  RunLoop::main().runPending();
  return G_SOURCE_CONTINUE;
}

gboolean postTypedLines(gint descriptor, GIOCondition, gpointer loop) {
  static std::string typed;
  std::array<char, 4096> piece{};
  const ssize_t size = read(descriptor, piece.data(), piece.size());
  if (size <= 0) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  }
  typed.append(piece.data(), static_cast<std::size_t>(size));
  for (std::size_t end = typed.find('\n'); end != std::string::npos; end = typed.find('\n')) {
    FRXNotificationCenter::sharedCenter()->postOutgoingNotification("Line", {{"text", typed.substr(0, end)}},
                                                                    std::nullopt, false);
    typed.erase(0, end + 1);
  }
  return G_SOURCE_CONTINUE;
}

gboolean quit(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

/// False when the node cannot start.
bool startNode(const std::string& serviceName) {
  const auto server = FRXServer::sharedInstance();
  server->republishBonjourWithServiceName(serviceName);
  FRXError error;
  if (!server->start(&error)) {
    std::cerr << error.localizedDescription << std::endl;
    return false;
  }
  server->startHeartbeatTimer();
  FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
  std::cout << "ready" << std::endl;
  return true;
}

}  // namespace

int main() {
  GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
  g_unix_fd_add(RunLoop::main().descriptor(), G_IO_IN, driveLibrary, nullptr);
  g_unix_signal_add(SIGINT, quit, loop);
  g_unix_signal_add(SIGTERM, quit, loop);
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), postTypedLines, loop);

  const auto lines = FRXNotificationCenter::sharedCenter()->addObserver(
      "Line", std::nullopt, [](const LocalNotification& received) {
        const auto text = received.userInfo.find("text");
        if (text == received.userInfo.end() || text->second.asText() == nullptr) return;
        std::cout << *text->second.asText() << std::endl;
      });
  const auto connections = NotificationDispatcher::defaultCenter().addObserver(
      FRXConnectedNotification, nullptr,
      [](const LocalNotification&) { std::cout << "connected" << std::endl; });
  const auto server = FRXServer::sharedInstance();
  server->setPort(0);
  int exitStatus = 0;
  server->createNewServiceName([loop, &exitStatus](const std::string& name) {
    RunLoop::main().post([loop, &exitStatus, name] {
      if (startNode(name)) return;
      exitStatus = 1;
      g_main_loop_quit(loop);
    });
  });
  g_main_loop_run(loop);
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  server->stop();
  g_main_loop_unref(loop);
  return exitStatus;
}

// A node inside a Qt application: a window with the lines that peers send, and a field for one's own. Lines
// that are typed into the terminal go to all peers as well.
#include <unistd.h>

#include <QApplication>
#include <QLineEdit>
#include <QListWidget>
#include <QSocketNotifier>
#include <QVBoxLayout>
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

void post(const QString& line) {
  FRXNotificationCenter::sharedCenter()->postOutgoingNotification("Line", {{"text", line.toStdString()}},
                                                                  std::nullopt, false);
}

void startNode(const std::string& serviceName) {
  const auto server = FRXServer::sharedInstance();
  server->republishBonjourWithServiceName(serviceName);
  FRXError error;
  if (!server->start(&error)) {
    std::cerr << error.localizedDescription << std::endl;
    return QApplication::exit(1);
  }
  server->startHeartbeatTimer();
  FRXBrowser::sharedInstance()->startBrowsingForServicesOfType("_ferrox._tcp", "");
  std::cout << "ready" << std::endl;
}

/// Shows what arrived, and tells the terminal what it shows.
void show(QListWidget& list, const LocalNotification& received) {
  const auto text = received.userInfo.find("text");
  if (text == received.userInfo.end() || text->second.asText() == nullptr) return;
  list.addItem(QString::fromStdString(*text->second.asText()));
  std::cout << list.item(list.count() - 1)->text().toStdString() << std::endl;
}

void postTyped(QByteArray& typed) {
  std::array<char, 4096> piece{};
  const ssize_t size = read(STDIN_FILENO, piece.data(), piece.size());
  if (size <= 0) return QApplication::quit();
  typed.append(piece.data(), static_cast<int>(size));
  for (int end = typed.indexOf('\n'); end >= 0; end = typed.indexOf('\n')) {
    post(QString::fromUtf8(typed.left(end)));
    typed.remove(0, end + 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  QWidget window;
  QVBoxLayout layout(&window);
  QListWidget list;
  QLineEdit field;
  layout.addWidget(&list);
  layout.addWidget(&field);
  QObject::connect(&field, &QLineEdit::returnPressed, [&field] {
    post(field.text());
    field.clear();
  });
  window.show();

  // Readable when there is something to do, timers included: nothing else has to be watched.
  QSocketNotifier library(RunLoop::main().descriptor(), QSocketNotifier::Read);
  QObject::connect(&library, &QSocketNotifier::activated, [] { RunLoop::main().runPending(); });
  QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
  QByteArray typed;
  QObject::connect(&input, &QSocketNotifier::activated, [&typed] { postTyped(typed); });

  const auto lines = FRXNotificationCenter::sharedCenter()->addObserver(
      "Line", std::nullopt, [&list](const LocalNotification& received) { show(list, received); });
  const auto connections = NotificationDispatcher::defaultCenter().addObserver(
      FRXConnectedNotification, nullptr,
      [](const LocalNotification&) { std::cout << "connected" << std::endl; });
  const auto server = FRXServer::sharedInstance();
  server->setPort(0);
  server->createNewServiceName(
      [](const std::string& name) { RunLoop::main().post([name] { startNode(name); }); });
  const int exitStatus = QApplication::exec();
  FRXBrowser::sharedInstance()->stopBrowsingForServices();
  server->stop();
  return exitStatus;
}

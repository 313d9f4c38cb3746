// Drives the DNS-SD layer alone from the command line, for tests between hosts. One JSON object a line on
// stdout; commands, one a line, on stdin:
//
//   publish NAME PORT [KEY=VALUE...]   txt KEY=VALUE...   unpublish
//   resolve HOST [MILLISECONDS]        reconfirm NAME     refresh     stop     browse     quit
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Base/Json.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/TXTRecord.h"
#include "Platform/Log/Log.h"
#include "Platform/RunLoop/RunLoop.h"

namespace {

using namespace ferrox;
using namespace std::chrono_literals;

constexpr const char* serviceType = "_ferrox._tcp";

void say(FRXDictionary members) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  std::cout << writeJson(members).value_or("{}") << std::endl;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

TXTDictionary txtFrom(const std::vector<std::string>& words, std::size_t first) {
  TXTDictionary txt;
  for (std::size_t i = first; i < words.size(); ++i) {
    const auto separator = words[i].find('=');
    if (separator != std::string::npos) txt[words[i].substr(0, separator)] = words[i].substr(separator + 1);
  }
  return txt;
}

FRXDictionary describe(const char* event, const NetService& service) {
  FRXDictionary members{{"event", event}, {"name", service.name()}};
  if (service.hostName()) members["host"] = *service.hostName();
  if (service.port() != 0) members["port"] = service.port();
  return members;
}

class Probe : public NetServiceBrowserListener,
              public NetServiceListener,
              public std::enable_shared_from_this<Probe> {
 public:
  Probe(RunLoop& loop, const DNSSDConfiguration& configuration, std::chrono::milliseconds patience)
      : loop_(loop), patience_(patience), dnssd_(DNSSD::make(loop, configuration)) {}

  void begin() {
    say({{"event", "started"}, {"backEnd", std::string(dnssd_->backEndName())}});
    browser_ = dnssd_->makeBrowser();
    browser_->setDelegate(weak_from_this());
    browser_->searchForServices(serviceType, "");
  }

  void command(const std::string& line) {
    const auto words = split(line, ' ');
    if (words.empty()) return;
    if (words[0] == "publish" && words.size() >= 3) publish(words);
    if (words[0] == "unpublish") publication_.reset();
    if (words[0] == "txt" && publication_) publication_->setTXTRecord(txtFrom(words, 1));
    if (words[0] == "resolve" && words.size() >= 2) resolve(words);
    if (words[0] == "reconfirm" && words.size() >= 2) reconfirm(line.substr(line.find(' ') + 1));
    if (words[0] == "refresh") dnssd_->refresh();
    if (words[0] == "stop") browser_->stop();
    if (words[0] == "browse") browser_->searchForServices(serviceType, "");
    if (words[0] == "quit") loop_.stop();
  }

  void netServiceBrowserDidFindService(const std::shared_ptr<NetService>& service, bool moreComing) override {
    auto members = describe("added", *service);
    members["moreComing"] = moreComing;
    say(members);
    services_.push_back(service);
    service->setDelegate(weak_from_this());
    service->resolveWithTimeout(patience_);
  }

  void netServiceBrowserDidRemoveService(const std::shared_ptr<NetService>& service,
                                         bool moreComing) override {
    auto members = describe("removed", *service);
    members["moreComing"] = moreComing;
    say(members);
    std::erase_if(services_, [&](const auto& known) { return known->isEqual(*service); });
  }

  void netServiceDidResolveAddress(const std::shared_ptr<NetService>& service) override {
    say(describe("resolved", *service));
    service->startMonitoring();
    service->stop();
  }

  void netServiceDidNotResolve(const std::shared_ptr<NetService>& service) override {
    say(describe("unresolved", *service));
  }

  void netServiceDidUpdateTXTRecordData(const std::shared_ptr<NetService>& service,
                                        const std::string& txtData) override {
    auto members = describe("txt", *service);
    FRXDictionary texts;
    for (const auto& [key, value] : decodeTXTRecord(txtData)) texts[key] = Log::escaped(value);
    members["txt"] = texts;
    say(members);
  }

 private:
  void publish(const std::vector<std::string>& words) {
    PublicationRequest request;
    request.name = words[1];
    request.type = serviceType;
    request.port = static_cast<std::uint16_t>(std::stoi(words[2]));
    request.txt = txtFrom(words, 3);
    request.onPublished = [](const std::string& name) { say({{"event", "published"}, {"name", name}}); };
    request.onFailed = [](const FRXError& error) {
      say({{"event", "failed"}, {"message", error.localizedDescription}});
    };
    publication_ = dnssd_->publish(std::move(request));
  }

  void resolve(const std::vector<std::string>& words) {
    const auto asked = std::chrono::steady_clock::now();
    const std::chrono::milliseconds timeout(words.size() > 2 ? std::stoi(words[2]) : 3000);
    dnssd_->resolveHostName(words[1], timeout, [asked, name = words[1]](const auto& addresses) {
      FRXArray texts;
      for (const SocketAddress& address : addresses) texts.push_back(address.hostText());
      const auto took = std::chrono::steady_clock::now() - asked;
      say({{"event", "addresses"},
           {"name", name},
           {"addresses", texts},
           {"ms", std::chrono::duration_cast<std::chrono::milliseconds>(took).count()}});
    });
  }

  void reconfirm(const std::string& name) {
    std::string rdata(1, static_cast<char>(name.size()));
    rdata += name;
    for (const std::string label : {"_ferrox", "_tcp", "local"}) {
      rdata.push_back(static_cast<char>(label.size()));
      rdata += label;
    }
    rdata.push_back('\0');
    const int code = dnssd_->reconfirmRecord(0, 0, "_ferrox._tcp.local.", 12, 1, rdata);
    say({{"event", "reconfirming"}, {"name", name}, {"code", code}});
  }

  RunLoop& loop_;
  std::chrono::milliseconds patience_;
  std::unique_ptr<DNSSD> dnssd_;
  std::unique_ptr<NetServiceBrowser> browser_;
  std::unique_ptr<NetServicePublication> publication_;
  std::vector<std::shared_ptr<NetService>> services_;
};

DNSSDConfiguration::BackEnd backEndNamed(const std::string& name) {
  if (name == "embedded") return DNSSDConfiguration::BackEnd::Embedded;
  if (name == "daemon") return DNSSDConfiguration::BackEnd::Daemon;
  if (name == "off") return DNSSDConfiguration::BackEnd::Off;
  return DNSSDConfiguration::BackEnd::Auto;
}

struct Options {
  DNSSDConfiguration configuration;
  std::chrono::milliseconds patience = 15s;
};

Options optionsFrom(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string key = argv[i];
    const std::string value = argv[i + 1];
    if (key == "--backend") options.configuration.backEnd = backEndNamed(value);
    if (key == "--allow") options.configuration.allowedInterfaces = split(value, ',');
    if (key == "--deny") options.configuration.deniedInterfaces = split(value, ',');
    if (key == "--host-name") options.configuration.hostName = value;
    if (key == "--patience") options.patience = std::chrono::milliseconds(std::stoi(value));
    if (key == "--log" && value == "debug") Log::setLevel(LogLevel::Debug);
  }
  return options;
}

void readCommands(RunLoop& loop, const std::weak_ptr<Probe>& weak) {
  for (std::string line; std::getline(std::cin, line);) {
    loop.post([weak, line] {
      if (const auto probe = weak.lock()) probe->command(line);
    });
  }
  loop.stop();
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = optionsFrom(argc, argv);
  auto& loop = RunLoop::main();
  auto probe = std::make_shared<Probe>(loop, options.configuration, options.patience);
  probe->begin();
  std::thread(readCommands, std::ref(loop), std::weak_ptr(probe)).detach();
  loop.run();
  probe.reset();
  say({{"event", "ended"}});
}

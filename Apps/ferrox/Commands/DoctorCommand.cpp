// `ferrox doctor`: what would keep peers from meeting, in plain words.
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "Apps/ferrox/Arguments/CommandLine.h"
#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Commands/Subcommand.h"
#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/NetworkSurvey.h"
#include "Apps/ferrox/Doctor/PeerPlaces.h"
#include "Apps/ferrox/Doctor/ThisMachine.h"
#include "Apps/ferrox/Node/NodeOptions.h"
#include "Platform/DNSSD/InterfacePolicy.h"

namespace ferrox::command {
namespace {

constexpr std::chrono::milliseconds multicastWait{2000};

class DoctorCommand final : public Subcommand {
 public:
  CommandLine& declare(CommandLine& parent) override {
    CommandLine& line = parent.subcommand("doctor", "says in plain words what would keep peers from meeting");
    declareNodeOptions(line, options_, FRXDefaultPort);
    line.footer(
        "Give it the options that the node is given. It listens for nodes for two seconds, then tries every\n"
        "address that is announced or named with --peer: nine seconds in all at most. It announces nothing\n"
        "and changes nothing. Exit status 1 when something would keep peers from meeting.\n\n"
        "Example:\n  ferrox doctor --peer 192.168.7.20 --peer edit-suite-3.local:16700");
    return line;
  }

  int run() override {
    endOnSignals();
    applyNodeOptions(options_);
    const int written =
        options_.json ? reportEvent("doctor", examine().members()) : reportText(told(examine()));
    return problem_ ? static_cast<int>(ExitFailed) : written;
  }

 private:
  // It has nothing to clean up, so the usual end by a signal serves.
  static void endOnSignals() {
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
  }

  static std::string told(const DoctorReport& report) {
    return report.text(Style::forDescriptor(STDOUT_FILENO));
  }

  DoctorReport examine() {
    const DNSSDConfiguration configuration = discoveryConfiguration(options_);
    const std::vector<dnssd::NetworkInterface> present = dnssd::currentNetworkInterfaces();
    DoctorReport report;
    report.add(examineRecord());
    report.add(examineInterfaces(configuration, present));
    // Before the multicast check, whose own sockets would be found.
    report.add(examineResponders());
    const std::set<std::string> own = addressesOfThisMachine();
    const bool discovers = options_.discovery != DNSSDConfiguration::BackEnd::Off;
    NetworkSurvey survey(discovers ? dnssd::InterfacePolicy(configuration).select(present).inUse
                                   : std::vector<dnssd::NetworkInterface>());
    if (discovers) {
      for (const FRXPeerAddress& peer : options_.peers) survey.want(peer.host());
      survey.run(multicastWait);
      report.add(examineMulticast(survey));
      report.add(examineAnnouncements(survey.announcements(), own));
    }
    report.add(examinePort(options_.port));
    const PeerPlaces places = placesToTry(options_.peers, survey.announcements(), own);
    if (!places.places.empty()) {
      report.add(examinePeers(places, discovers ? &survey.announcements() : nullptr));
    }
    problem_ = report.foundProblem();
    return report;
  }

  NodeOptions options_;
  bool problem_ = false;
};

}  // namespace

std::unique_ptr<Subcommand> makeDoctorCommand() { return std::make_unique<DoctorCommand>(); }

}  // namespace ferrox::command

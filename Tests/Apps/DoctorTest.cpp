#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/DoctorReport.h"

namespace ferrox::command {
namespace {

dnssd::NetworkInterface interface(int index, const std::string& name) {
  dnssd::NetworkInterface out;
  out.index = index;
  out.name = name;
  out.up = out.multicast = out.hasIPv4 = true;
  return out;
}

const Finding& findingAbout(const Examination& examination, const std::string& name) {
  for (const Finding& finding : examination.findings) {
    const auto about = finding.facts.find("interface");
    if (about != finding.facts.end() && about->second == FRXValue(name)) return finding;
  }
  static const Finding none{Verdict::Bad, "nothing was said about " + name, {}};
  return none;
}

bool hasProblem(const Examination& examination) {
  DoctorReport report;
  report.add(examination);
  return report.foundProblem();
}

TEST(Doctor, SaysWhichInterfacesAreUsedAndWhyOthersAreNot) {
  auto down = interface(2, "eth1");
  down.up = false;
  auto loopback = interface(1, "lo");
  loopback.loopback = true;
  const Examination out =
      examineInterfaces({}, {loopback, down, interface(3, "eth0"), interface(4, "docker0")});
  EXPECT_EQ(findingAbout(out, "eth0").text, "eth0 is used: IPv4");
  EXPECT_EQ(findingAbout(out, "eth1").text, "eth1 is not used: down or without a carrier");
  EXPECT_NE(findingAbout(out, "docker0").text.find("virtual"), std::string::npos);
  EXPECT_NE(findingAbout(out, "lo").text.find("not needed"), std::string::npos);
  EXPECT_FALSE(hasProblem(out));
}

TEST(Doctor, AMissingInterfaceAndNoneAtAllAreProblems) {
  DNSSDConfiguration configuration;
  configuration.allowedInterfaces = {"eth7"};
  const Examination out = examineInterfaces(configuration, {interface(3, "eth0")});
  EXPECT_TRUE(hasProblem(out));
  EXPECT_EQ(findingAbout(out, "eth7").text, "there is no interface eth7");
  EXPECT_NE(findingAbout(out, "eth0").text.find("not among those named"), std::string::npos);
}

TEST(Doctor, ATakenPortIsTold) {
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), length), 0);
  ASSERT_EQ(listen(descriptor, 1), 0);
  ASSERT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length), 0);
  const Examination taken = examinePort(ntohs(address.sin_port));
  EXPECT_EQ(taken.findings.at(0).verdict, Verdict::Note);
  EXPECT_EQ(taken.findings.at(0).facts.at("free"), FRXValue(false));
  close(descriptor);
  EXPECT_EQ(examinePort(ntohs(address.sin_port)).findings.at(0).verdict, Verdict::Good);
}

TEST(Doctor, LoopbackCarriesMulticastBothWays) {
  for (const dnssd::NetworkInterface& present : dnssd::currentNetworkInterfaces()) {
    if (!present.loopback) continue;
    const Examination out = examineMulticast({present}, std::chrono::milliseconds(400));
    ASSERT_EQ(out.findings.size(), 1U);
    EXPECT_EQ(out.findings[0].facts.at("sent"), FRXValue(true)) << out.findings[0].text;
    EXPECT_EQ(out.findings[0].facts.at("heardBack"), FRXValue(true)) << out.findings[0].text;
    return;
  }
  FAIL() << "no loopback interface was found, which every machine has";
}

TEST(Doctor, NothingToSendOnIsAProblem) {
  EXPECT_TRUE(hasProblem(examineMulticast({}, std::chrono::milliseconds(1))));
}

TEST(Doctor, ConcludesInOneSentence) {
  DoctorReport report;
  report.add({"a", "A", {{Verdict::Good, "fine", {}}, {Verdict::Note, "so so", {}}}});
  EXPECT_EQ(report.conclusion(), "Nothing was found that would keep peers from meeting.");
  report.add({"b", "B", {{Verdict::Bad, "the cable is out", {{"x", 1}}}}});
  EXPECT_EQ(report.conclusion(), "Peers may not meet: the cable is out.");
  EXPECT_NE(report.text(Style(false)).find("  ✗  the cable is out\n"), std::string::npos);
  const FRXDictionary members = report.members();
  EXPECT_EQ(members.at("ok"), FRXValue(false));
  EXPECT_EQ(members.at("findings").asArray()->size(), 3U);
}

}  // namespace
}  // namespace ferrox::command

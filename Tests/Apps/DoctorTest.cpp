#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/DoctorReport.h"
#include "Apps/ferrox/Doctor/NetworkSurvey.h"

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
  EXPECT_EQ(findingAbout(out, "eth0").text, "eth0 is used: up and able to carry multicast; IPv4");
  EXPECT_EQ(findingAbout(out, "eth1").text, "eth1 is not used: down or without a carrier");
  EXPECT_NE(findingAbout(out, "docker0").text.find("virtual"), std::string::npos);
  EXPECT_NE(findingAbout(out, "lo").text.find("not needed"), std::string::npos);
  EXPECT_FALSE(hasProblem(out));
}

TEST(Doctor, SaysWhyAnInterfaceIsUsedThatUsuallyIsNot) {
  auto bridge = interface(2, "br-film");
  bridge.hasDefaultRoute = bridge.hasIPv6 = true;
  EXPECT_EQ(findingAbout(examineInterfaces({}, {bridge}), "br-film").text,
            "br-film is used: virtual, but with the default route; IPv4 and IPv6");
  DNSSDConfiguration configuration;
  configuration.allowedInterfaces = {"docker0"};
  EXPECT_EQ(findingAbout(examineInterfaces(configuration, {interface(3, "docker0")}), "docker0").text,
            "docker0 is used: named with --interface; IPv4");
  auto loopback = interface(1, "lo");
  loopback.loopback = true;
  EXPECT_EQ(findingAbout(examineInterfaces({}, {loopback}), "lo").text, "lo is used: no other is up; IPv4");
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
    NetworkSurvey survey({present});
    survey.run(std::chrono::milliseconds(400));
    const Examination out = examineMulticast(survey);
    ASSERT_EQ(out.findings.size(), 1U);
    EXPECT_EQ(out.findings[0].facts.at("sent"), FRXValue(true)) << out.findings[0].text;
    EXPECT_EQ(out.findings[0].facts.at("heardBack"), FRXValue(true)) << out.findings[0].text;
    return;
  }
  FAIL() << "no loopback interface was found, which every machine has";
}

TEST(Doctor, AnInterfaceThatIsGoneCannotBeSentOn) {
  NetworkSurvey survey({interface(999'999, "gone0")});
  survey.run(std::chrono::milliseconds(20));
  const Examination out = examineMulticast(survey);
  ASSERT_EQ(out.findings.size(), 1U);
  EXPECT_EQ(out.findings[0].verdict, Verdict::Bad);
  EXPECT_EQ(out.findings[0].facts.at("sent"), FRXValue(false));
  EXPECT_NE(out.findings[0].advice.find("gone0"), std::string::npos);
}

TEST(Doctor, NothingToSendOnIsAProblem) {
  NetworkSurvey survey({});
  survey.run(std::chrono::milliseconds(1));
  EXPECT_TRUE(hasProblem(examineMulticast(survey)));
}

TEST(Doctor, ConcludesWithWhatToDoFirst) {
  DoctorReport report;
  report.add({"a", "A", {{Verdict::Good, "fine", {}}, {Verdict::Note, "so so", {}, "have a look"}}});
  EXPECT_EQ(report.conclusion(), "Nothing was found that would keep peers from meeting.");
  report.add({"b", "B", {{Verdict::Bad, "the cable is out", {{"x", 1}}, "plug it in"}}});
  EXPECT_EQ(report.conclusion(), "Peers may not meet: the cable is out. What to do: plug it in.");
  EXPECT_NE(report.text(Style(false)).find("  ✗  the cable is out\n     → plug it in\n"), std::string::npos);
  const FRXDictionary members = report.members();
  EXPECT_EQ(members.at("ok"), FRXValue(false));
  const FRXArray& findings = *members.at("findings").asArray();
  ASSERT_EQ(findings.size(), 3U);
  EXPECT_EQ(findings[0].member("advice"), nullptr);
  EXPECT_EQ(*findings[2].member("advice"), FRXValue("plug it in"));
  EXPECT_EQ(*findings[2].member("x"), FRXValue(1));
  report.add({"c", "C", {{Verdict::Bad, "it burns", {}}}});
  EXPECT_EQ(report.conclusion(),
            "Peers may not meet, for 2 reasons; first of all: the cable is out. What to do: plug it in.");
}

TEST(Doctor, TextFromPeersIsEscaped) {
  DoctorReport report;
  report.add({"a", "A", {{Verdict::Bad, "\x1b[31mred", {}, "\x1b[2J"}}});
  EXPECT_EQ(report.text(Style(false)).find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace ferrox::command

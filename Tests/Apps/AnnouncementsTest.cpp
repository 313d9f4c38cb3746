#include <gtest/gtest.h>

#include <algorithm>

#include "Apps/ferrox/Doctor/Announcements.h"
#include "Apps/ferrox/Doctor/Checks.h"
#include "Apps/ferrox/Doctor/PeerPlaces.h"
#include "Classes/Utilities/FRXUtilities.h"
#include "Platform/Base/Utf8.h"

namespace ferrox::command {
namespace {

using namespace std::string_literals;
using dnssd::DNSMessage;
using dnssd::DNSName;
using dnssd::DNSRecord;

const DNSName service{"_ferrox", "_tcp", "local"};

DNSName instance(const std::string& name) { return {name, "_ferrox", "_tcp", "local"}; }

std::string wire(const DNSName& name) {
  std::string out;
  for (const std::string& label : name) out += static_cast<char>(label.size()) + label;
  return out + '\0';
}

DNSRecord record(DNSName name, std::uint16_t type, std::string data, std::uint32_t timeToLive = 120) {
  // Owners of unique records set the highest bit.
  return {std::move(name), type, 0x8001, timeToLive, std::move(data)};
}

DNSRecord pointer(const std::string& name, std::uint32_t timeToLive = 4500) {
  return record(service, dnssd::recordTypePTR, wire(instance(name)), timeToLive);
}

DNSRecord location(const std::string& name, const DNSName& host) {
  return record(instance(name), dnssd::recordTypeSRV, "\0\0\0\0\x41\x0E"s + wire(host));
}

DNSRecord txt(const std::string& name, std::string data) {
  return record(instance(name), dnssd::recordTypeTXT, std::move(data));
}

DNSRecord address(const DNSName& host, std::string data) {
  const std::uint16_t type = data.size() == 4 ? dnssd::recordTypeA : dnssd::recordTypeAAAA;
  return record(host, type, std::move(data));
}

const DNSName host{"Suite-2", "local"};
const std::string linkLocal = "\xFE\x80\0\0\0\0\0\0\0\0\0\0\0\0\0\x07"s;

DNSMessage response(std::vector<DNSRecord> records) {
  DNSMessage out;
  out.flags = 0x8400;
  out.records = std::move(records);
  return out;
}

Announcements heard(std::vector<DNSRecord> records) {
  Announcements out;
  out.take(response(std::move(records)), "eth0");
  return out;
}

bool asks(const Announcements& announcements, const DNSName& name, std::uint16_t type) {
  const auto questions = announcements.questions();
  return std::any_of(questions.begin(), questions.end(), [&](const dnssd::DNSQuestion& question) {
    return dnssd::sameDNSName(question.name, name) && question.type == type;
  });
}

TEST(Announcements, ANodeIsPutTogetherFromItsRecords) {
  const Announcements out =
      heard({pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", host), txt("ab-1/suite 2", "\3a=b"),
             address(host, "\x0A\x4D\0\2"s), address({"SUITE-2", "LOCAL"}, linkLocal)});
  ASSERT_EQ(out.nodes().size(), 1U);
  const AnnouncedNode node = out.nodes().front();
  EXPECT_EQ(node.serviceName, "AB-1/SUITE 2");
  EXPECT_EQ(node.hostName, "Suite-2.local");
  EXPECT_EQ(node.port, 16654);
  EXPECT_EQ(node.txt, "\3a=b");
  EXPECT_EQ(node.interfaces, std::set<std::string>{"eth0"});
  EXPECT_EQ(out.addressesOf("suite-2.LOCAL."), (std::vector<std::string>{"10.77.0.2", "fe80::7%eth0"}));
  EXPECT_EQ(out.questions().size(), 1U);  // for nodes, and nothing else is missing
}

TEST(Announcements, WhatIsMissingIsAskedFor) {
  Announcements out = heard({pointer("AB-1/SUITE 2")});
  EXPECT_TRUE(asks(out, instance("AB-1/SUITE 2"), dnssd::recordTypeSRV));
  EXPECT_TRUE(asks(out, instance("AB-1/SUITE 2"), dnssd::recordTypeTXT));
  out.take(response({location("AB-1/SUITE 2", host)}), "eth1");
  EXPECT_FALSE(asks(out, instance("AB-1/SUITE 2"), dnssd::recordTypeSRV));
  EXPECT_TRUE(asks(out, host, dnssd::recordTypeA));
  EXPECT_TRUE(asks(out, host, dnssd::recordTypeAAAA));
  EXPECT_EQ(out.nodes().front().interfaces, (std::set<std::string>{"eth0", "eth1"}));
}

TEST(Announcements, HostsThatAreWantedAreAskedFor) {
  Announcements out;
  out.want("camera-7.local");
  EXPECT_TRUE(asks(out, {"camera-7", "local"}, dnssd::recordTypeA));
  out.take(response({address({"camera-7", "local"}, "\x0A\x4D\0\3"s)}), "eth0");
  EXPECT_FALSE(asks(out, {"camera-7", "local"}, dnssd::recordTypeA));
}

TEST(Announcements, AGoodbyeEndsANode) {
  Announcements out = heard({pointer("AB-1/SUITE 2")});
  EXPECT_FALSE(out.take(response({pointer("AB-1/SUITE 2", 0)}), "eth0"));
  EXPECT_TRUE(out.nodes().empty());
}

TEST(Announcements, OtherServicesAndDamagedRecordsAreNotTaken) {
  const Announcements out =
      heard({record({"_ipp", "_tcp", "local"}, dnssd::recordTypePTR, wire({"p", "_ipp", "_tcp", "local"})),
             record(service, dnssd::recordTypePTR, "\5x"), record(service, dnssd::recordTypePTR, wire({"x"})),
             address(host, "abc"), address(host, "")});
  EXPECT_TRUE(out.nodes().empty());
  EXPECT_TRUE(out.addressesOf("suite-2.local").empty());
}

TEST(Announcements, NamesThatAreNotUTF8AreMadeReadable) {
  const Announcements out = heard({pointer("AB-1/\xFF\xFE"), location("AB-1/\xFF\xFE", {"\xC3", "local"})});
  ASSERT_EQ(out.nodes().size(), 1U);
  EXPECT_TRUE(isUtf8(out.nodes().front().serviceName));
  EXPECT_TRUE(isUtf8(out.nodes().front().hostName));
}

TEST(Announcements, NobodyCanFillTheMemory) {
  Announcements out;
  for (int i = 0; i < 2000; ++i) {
    const std::string name = "n" + std::to_string(i);
    const std::string number{static_cast<char>(i >> 8), static_cast<char>(i)};
    out.take(response({pointer(name), address({name, "local"}, "\x0A\0"s + number),
                       address(host, "\x0A\1"s + number)}),
             "eth0");
  }
  EXPECT_EQ(out.nodes().size(), Announcements::maxNodes);
  EXPECT_EQ(out.addressesOf("suite-2.local").size(), Announcements::maxAddressesPerHost);
  EXPECT_TRUE(out.addressesOf("n1999.local").empty());
}

// What the doctor says of them

Finding findingAbout(std::vector<DNSRecord> records) {
  const Examination out = examineAnnouncements(heard(std::move(records)), {"10.77.0.9"});
  EXPECT_EQ(out.findings.size(), 1U);
  return out.findings.front();
}

TEST(AnnouncementCheck, ASoundNodeIsToldWithTheSizeOfItsRecord) {
  const Finding out = findingAbout({pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", host),
                                    txt("AB-1/SUITE 2", "\3a=b"), address(host, "\x0A\x4D\0\2"s)});
  EXPECT_EQ(out.verdict, Verdict::Good);
  EXPECT_EQ(out.text,
            "\"SUITE 2\" is announced on eth0: Suite-2.local:16654; its TXT record takes 4 of 1200 bytes");
  EXPECT_EQ(out.facts.at("txtBytes"), FRXValue(4));
  EXPECT_EQ(out.facts.at("onThisMachine"), FRXValue(false));
}

TEST(AnnouncementCheck, ALargeOrMissingRecordIsWorthKnowing) {
  const std::vector<DNSRecord> place{pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", host),
                                     address(host, "\x0A\x4D\0\2"s)};
  EXPECT_EQ(findingAbout(place).verdict, Verdict::Note);
  auto large = place;
  large.push_back(txt("AB-1/SUITE 2", std::string(1201, 'x')));
  const Finding out = findingAbout(large);
  EXPECT_EQ(out.verdict, Verdict::Note);
  EXPECT_NE(out.text.find("1201 of 1200 bytes"), std::string::npos);
}

TEST(AnnouncementCheck, ANodeThatNobodyCanReachIsAProblem) {
  EXPECT_EQ(findingAbout({pointer("AB-1/SUITE 2")}).verdict, Verdict::Bad);
  EXPECT_EQ(findingAbout({pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", host)}).verdict, Verdict::Bad);
  const Finding unusable =
      findingAbout({pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", {"a b@c", "local"})});
  EXPECT_NE(unusable.text.find("unusable host or port"), std::string::npos);
}

TEST(AnnouncementCheck, AnotherMachineWithThisOnesIdentityIsAProblem) {
  std::string device = FRXUtilities::currentDeviceUUID().value_or("");
  device.erase(std::remove(device.begin(), device.end(), '-'), device.end());
  ASSERT_FALSE(device.empty());
  const std::string name = device + "-MQ==/X";
  const auto at = [&](const std::string& where) {
    return findingAbout({pointer(name), location(name, host), txt(name, ""), address(host, where)});
  };
  EXPECT_EQ(at("\x0A\x4D\0\2"s).verdict, Verdict::Bad);
  EXPECT_NE(at("\x0A\x4D\0\2"s).text.find("identity of this one"), std::string::npos);
  EXPECT_EQ(at("\x0A\x4D\0\x09"s).verdict, Verdict::Good);
}

TEST(AnnouncementCheck, SilenceIsWorthKnowing) {
  const Finding out = findingAbout({});
  EXPECT_EQ(out.verdict, Verdict::Note);
  EXPECT_EQ(out.text, "no node is announced");
}

// Which addresses are tried

TEST(PeerPlaces, NamedAndAnnouncedAddressesAreTriedOnce) {
  const Announcements out = heard({pointer("AB-1/SUITE 2"), location("AB-1/SUITE 2", host),
                                   address(host, "\x0A\x4D\0\2"s), address(host, linkLocal)});
  const auto peers = placesToTry({*FRXPeerAddress::make("10.77.0.2"), *FRXPeerAddress::make("edit.example")},
                                 out, {"10.77.0.9"});
  ASSERT_EQ(peers.places.size(), 3U);
  EXPECT_TRUE(peers.places[0].given && peers.places[0].announced);
  EXPECT_EQ(displayName(peers.places[0]), "10.77.0.2:16654");
  EXPECT_TRUE(peers.places[1].given && !peers.places[1].announced);
  EXPECT_EQ(displayName(peers.places[2]), "\"SUITE 2\" at [fe80::7%eth0]:16654");
  EXPECT_FALSE(peers.places[2].given);
}

TEST(PeerPlaces, ANameStandsForItsAddresses) {
  const Announcements out = heard({address(host, "\x0A\x4D\0\2"s), address(host, "\x0A\x4D\0\x09"s)});
  const auto peers = placesToTry({*FRXPeerAddress::make("suite-2.local", 700)}, out, {"10.77.0.9"});
  ASSERT_EQ(peers.places.size(), 2U);
  EXPECT_EQ(displayName(peers.places[0]), "suite-2.local:700 at 10.77.0.2:700");
  EXPECT_FALSE(peers.places[0].onThisMachine);
  EXPECT_TRUE(peers.places[1].onThisMachine);
}

TEST(PeerPlaces, ThereIsALimit) {
  std::vector<FRXPeerAddress> given;
  for (std::uint16_t i = 1; i <= PeerPlaces::most + 5; ++i)
    given.push_back(*FRXPeerAddress::make("10.0.0.1", i));
  const auto peers = placesToTry(given, {}, {});
  EXPECT_EQ(peers.places.size(), PeerPlaces::most);
  EXPECT_EQ(peers.leftOut, 5U);
}

}  // namespace
}  // namespace ferrox::command

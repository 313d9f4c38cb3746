#include <gtest/gtest.h>

#include <random>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/HostNameText.h"
#include "Platform/DNSSD/Reconfirmation.h"

namespace ferrox::dnssd {
namespace {

using namespace std::string_literals;

DNSMessage sample() {
  DNSMessage message;
  message.id = 0x1234;
  message.flags = 0x8400;
  message.questions.push_back({{"PEER", "_ferrox", "_tcp", "local"}, recordTypeSRV, recordClassIN});
  message.records.push_back({{"_ferrox", "_tcp", "local"}, recordTypePTR, recordClassIN, 4500, "\4PEER\0"s});
  message.records.push_back({{"PEER"}, recordTypeTXT, recordClassIN, 0, "\0"s});
  return message;
}

// Header of a response with that many answers.
std::string header(char answers) { return "\0\0\x84\0\0\0\0"s + answers + "\0\0\0\0"s; }
const std::string emptyRecordEnd = "\0\x10\0\1\0\0\0\x78\0\0"s;

TEST(DNSMessage, WhatWasWrittenIsRead) {
  const auto packet = writeDNSMessage(sample());
  ASSERT_TRUE(packet);
  const auto read = readDNSMessage(*packet);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->id, 0x1234);
  EXPECT_TRUE(read->isResponse());
  ASSERT_EQ(read->questions.size(), 1U);
  EXPECT_EQ(read->questions[0].name, (DNSName{"PEER", "_ferrox", "_tcp", "local"}));
  ASSERT_EQ(read->records.size(), 2U);
  EXPECT_EQ(read->records[0].timeToLive, 4500U);
  EXPECT_EQ(read->records[0].rdata, "\4PEER\0"s);
}

TEST(DNSMessage, EveryTruncationIsRefused) {
  const std::string packet = *writeDNSMessage(sample());
  for (std::size_t size = 0; size < packet.size(); ++size) {
    EXPECT_FALSE(readDNSMessage(packet.substr(0, size))) << size;
  }
}

TEST(DNSMessage, CompressedNamesAreExpanded) {
  const auto message =
      readDNSMessage(header(2) + "\3abc\5local\0"s + emptyRecordEnd + "\1x\xC0\x10"s + emptyRecordEnd);
  ASSERT_TRUE(message);
  ASSERT_EQ(message->records.size(), 2U);
  EXPECT_EQ(message->records[1].name, (DNSName{"x", "local"}));
}

// A record named "abc.local" with that type and data; the name stands at 0x0C, "local" at 0x10.
std::string recordWithData(char type, const std::string& data) {
  return header(1) + "\3abc\5local\0"s + "\0"s + type + "\0\1\0\0\0\x78\0"s + static_cast<char>(data.size()) +
         data;
}

TEST(DNSMessage, NamesInPointersAndLocationsAreWrittenOut) {
  const auto pointer = readDNSMessage(recordWithData(12, "\1x\xC0\x10"s));
  ASSERT_TRUE(pointer);
  EXPECT_EQ(readPTRData(pointer->records.at(0).rdata), (DNSName{"x", "local"}));
  const auto location = readDNSMessage(recordWithData(33, "\0\0\0\0\x41\x0E\xC0\x0C"s));
  ASSERT_TRUE(location);
  const auto data = readSRVData(location->records.at(0).rdata);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->port, 16654);
  EXPECT_EQ(data->target, (DNSName{"abc", "local"}));
}

TEST(DNSMessage, DataThatOnlyBeginsLikeANameStaysAsItIs) {
  for (const std::string& data : {"\1x\0y"s, "\1"s, "\xC0"s, "\xC0\xFF"s, ""s, "\5loc"s}) {
    const auto message = readDNSMessage(recordWithData(12, data));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->records.at(0).rdata, data);
  }
  EXPECT_EQ(readDNSMessage(recordWithData(33, "\0\0\0\0\x41"s))->records.at(0).rdata, "\0\0\0\0\x41"s);
  EXPECT_EQ(readDNSMessage(recordWithData(16, "\xC0\x0C"s))->records.at(0).rdata, "\xC0\x0C"s);
}

TEST(DNSMessage, PointersThatLoopOrPointAheadAreRefused) {
  EXPECT_FALSE(readDNSMessage(header(1) + "\xC0\x0C"s + emptyRecordEnd));
  EXPECT_FALSE(readDNSMessage(header(1) + "\xC0\x0E\3abc\0"s + emptyRecordEnd));
  EXPECT_FALSE(readDNSMessage(header(1) + "\1a\xC0\x0C"s + emptyRecordEnd));
  EXPECT_FALSE(readDNSMessage(header(1) + "\xFF\xFF"s + emptyRecordEnd));
}

TEST(DNSMessage, ReservedLabelTypesAndOverlongNamesAreRefused) {
  EXPECT_FALSE(readDNSMessage(header(1) + "\x40" + std::string(64, 'a') + "\0"s + emptyRecordEnd));
  std::string name;
  for (int i = 0; i < 4; ++i) name += "\x3F" + std::string(63, 'a');
  EXPECT_FALSE(readDNSMessage(header(1) + name + "\0"s + emptyRecordEnd));
}

TEST(DNSMessage, CountsBeyondThePacketAreRefused) {
  EXPECT_FALSE(readDNSMessage("\0\0\0\0\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s));
  EXPECT_FALSE(readDNSMessage(header(1) + "\0\0\x10\0\1\0\0\0\x78\xFF\xFF"s));
  EXPECT_FALSE(readDNSMessage(std::string(9001, '\0')));
}

TEST(DNSMessage, DamagedPacketsAreReadOrRefusedWithoutHarm) {
  const std::string packet = *writeDNSMessage(sample());
  std::mt19937 random(7);
  std::size_t refused = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string damaged = packet;
    for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<char>(random());
    if (!readDNSMessage(damaged)) ++refused;
  }
  EXPECT_GT(refused, 0U);
  EXPECT_LT(refused, 20000U);
}

TEST(DNSMessage, NamesThatAreNoneAreNotWritten) {
  DNSMessage message;
  message.questions.push_back({{std::string(64, 'a')}, 1, 1});
  EXPECT_FALSE(writeDNSMessage(message));
  message.questions[0].name = {"a", ""};
  EXPECT_FALSE(writeDNSMessage(message));
  message.questions[0].name = DNSName(128, "a");
  EXPECT_FALSE(writeDNSMessage(message));
}

TEST(DNSMessage, NamesAreReadFromText) {
  EXPECT_EQ(dnsNameFromText("_ferrox._tcp.local."), (DNSName{"_ferrox", "_tcp", "local"}));
  EXPECT_EQ(dnsNameFromText("a"), DNSName{"a"});
  EXPECT_FALSE(dnsNameFromText(""));
  EXPECT_FALSE(dnsNameFromText("."));
  EXPECT_FALSE(dnsNameFromText("a..b"));
  EXPECT_FALSE(dnsNameFromText(std::string(64, 'a') + ".local"));
}

TEST(DNSMessage, NamesAreComparedWithoutRegardToCase) {
  EXPECT_TRUE(sameDNSName({"PEER", "local"}, {"peer", "LOCAL"}));
  EXPECT_FALSE(sameDNSName({"PEER", "local"}, {"PEER"}));
  EXPECT_FALSE(sameDNSName({"a", "b"}, {"ab"}));
}

TEST(DNSMessage, LocationDataIsReadStrictly) {
  const auto data = readSRVData("\0\0\0\0\x40\x0E\3mac\5local\0"s);
  ASSERT_TRUE(data);
  EXPECT_EQ(data->port, 16398);
  EXPECT_EQ(data->target, (DNSName{"mac", "local"}));
  EXPECT_FALSE(readSRVData("\0\0\0\0\x40\x0E\3mac\5local\0x"s));
  EXPECT_FALSE(readSRVData("\0\0\0\0\x40\x0E\3mac\5loc"s));
  EXPECT_FALSE(readSRVData("\0\0\0\0\x40\x0E\xC0\0"s));
  EXPECT_FALSE(readSRVData(""));
  EXPECT_FALSE(readPTRData("\1a\0\0"s));
  EXPECT_EQ(readPTRData("\1a\0"s), DNSName{"a"});
}

TEST(HostNameText, OnlyNamesThatMayStandInAURLAreTaken) {
  EXPECT_EQ(hostNameText({"peer-mac", "local"}), "peer-mac.local.");
  EXPECT_EQ(hostNameText({"m\xC3\xBCller", "local"}), "m\xC3\xBCller.local.");
  EXPECT_FALSE(hostNameText({"a/b", "local"}));
  EXPECT_FALSE(hostNameText({"a@b", "local"}));
  EXPECT_FALSE(hostNameText({"a.b", "local"}));
  EXPECT_FALSE(hostNameText({"a\r\nb", "local"}));
  EXPECT_FALSE(hostNameText({"a\xFF", "local"}));
  EXPECT_FALSE(hostNameText({}));
  EXPECT_EQ(normalizedHostName("Peer-MAC.Local."), "peer-mac.local");
  EXPECT_FALSE(normalizedHostName("a b.local"));
}

class ConfirmationTest : public testing::Test {
 protected:
  std::string answer(std::uint32_t timeToLive, std::uint16_t flags = 0x8400,
                     std::uint16_t type = recordTypeSRV) {
    DNSMessage message;
    message.flags = flags;
    message.records.push_back({{"peer", "_ferrox", "_tcp", "local"}, type, 0x8001, timeToLive, "x"});
    return *writeDNSMessage(message);
  }
  DNSName instance_{"PEER", "_ferrox", "_tcp", "local"};
};

TEST_F(ConfirmationTest, OnlyTheOwnersLivingRecordConfirms) {
  EXPECT_TRUE(confirmsInstance(answer(120), instance_));
  EXPECT_FALSE(confirmsInstance(answer(0), instance_));
  EXPECT_FALSE(confirmsInstance(answer(120, 0), instance_));
  EXPECT_FALSE(confirmsInstance(answer(120, 0x8400, recordTypeTXT), instance_));
  EXPECT_FALSE(confirmsInstance(answer(120), {"OTHER", "_ferrox", "_tcp", "local"}));
  EXPECT_FALSE(confirmsInstance("rubbish", instance_));
}

TEST_F(ConfirmationTest, BurialEndsThePointerAndTheGivenRecords) {
  const auto packet =
      burialPacket({"A.B/c", "_ferrox._tcp", "local"}, {{recordTypeSRV, "srv"}, {recordTypeTXT, "txt"}});
  ASSERT_TRUE(packet);
  const auto message = readDNSMessage(*packet);
  ASSERT_TRUE(message && message->isResponse());
  ASSERT_EQ(message->records.size(), 3U);
  for (const DNSRecord& record : message->records) EXPECT_EQ(record.timeToLive, 0U);
  EXPECT_EQ(message->records[0].name, (DNSName{"_ferrox", "_tcp", "local"}));
  EXPECT_EQ(readPTRData(message->records[0].rdata), (DNSName{"A.B/c", "_ferrox", "_tcp", "local"}));
  EXPECT_EQ(message->records[1].name, (DNSName{"A.B/c", "_ferrox", "_tcp", "local"}));
  EXPECT_EQ(message->records[1].rdata, "srv");
  EXPECT_FALSE(burialPacket({std::string(64, 'a'), "_ferrox._tcp", "local"}, {}));
  EXPECT_FALSE(burialPacket({"", "_ferrox._tcp", "local"}, {}));
}

}  // namespace
}  // namespace ferrox::dnssd

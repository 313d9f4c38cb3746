#include <gtest/gtest.h>

#include "Platform/DNSSD/TXTRecord.h"

namespace ferrox {
namespace {

using Entries = std::map<std::string, std::string>;
using namespace std::string_literals;

TEST(TXTRecord, WhatWasEncodedIsDecoded) {
  const Entries entries{
      {"App", "Alpha"}, {"Status", ""}, {"Heartbeat", "2026-01-01 10:00:00+0000"}, {"b", "=\0x"s}};
  const auto rdata = encodeTXTRecord(entries);
  ASSERT_TRUE(rdata);
  EXPECT_EQ(decodeTXTRecord(*rdata), entries);
}

TEST(TXTRecord, NoEntriesAreOneEmptyString) {
  EXPECT_EQ(encodeTXTRecord({}), "\0"s);
  EXPECT_EQ(decodeTXTRecord("\0"s), Entries{});
  EXPECT_EQ(decodeTXTRecord(""), Entries{});
}

TEST(TXTRecord, AKeyWithoutEqualsSignHasAnEmptyValue) {
  EXPECT_EQ(decodeTXTRecord("\x04"
                            "flag"),
            (Entries{{"flag", ""}}));
}

TEST(TXTRecord, OnlyTheFirstEqualsSignSeparates) {
  EXPECT_EQ(decodeTXTRecord("\x05"
                            "a=b=c"),
            (Entries{{"a", "b=c"}}));
}

TEST(TXTRecord, StringsWithoutAKeyAreSkipped) {
  EXPECT_EQ(decodeTXTRecord("\x02=x\x01=\x03"
                            "a=1"),
            (Entries{{"a", "1"}}));
}

TEST(TXTRecord, KeysWithNonPrintingCharactersAreSkipped) {
  EXPECT_EQ(decodeTXTRecord("\x04\x01\x02=x\x05\xC3\xBC=ab\x03"
                            "a=1"),
            (Entries{{"a", "1"}}));
}

TEST(TXTRecord, OfARepeatedKeyTheFirstCountsWhateverItsCase) {
  EXPECT_EQ(decodeTXTRecord("\x05"
                            "App=1\x05"
                            "aPP=2\x05"
                            "App=3"),
            (Entries{{"App", "1"}}));
}

TEST(TXTRecord, TruncatedDataKeepsWhatCameBefore) {
  EXPECT_EQ(decodeTXTRecord("\x03"
                            "a=1\xFF"
                            "b=2"),
            (Entries{{"a", "1"}}));
  EXPECT_EQ(decodeTXTRecord("\x03"
                            "a="),
            Entries{});
}

TEST(TXTRecord, EveryTruncationIsReadWithoutHarm) {
  const std::string rdata = *encodeTXTRecord({{"a", "1"}, {"bb", "22"}, {"ccc", std::string(200, 'x')}});
  for (std::size_t size = 0; size < rdata.size(); ++size) {
    EXPECT_LT(decodeTXTRecord(rdata.substr(0, size)).size(), 3U) << size;
  }
}

TEST(TXTRecord, UnusableKeysAreRefused) {
  EXPECT_FALSE(encodeTXTRecord({{"", "1"}}));
  EXPECT_FALSE(encodeTXTRecord({{"a=b", "1"}}));
  EXPECT_FALSE(encodeTXTRecord({{"\n", "1"}}));
  EXPECT_FALSE(encodeTXTRecord({{"\xC3\xBC", "1"}}));
}

TEST(TXTRecord, AStringOf255BytesIsTheLongest) {
  EXPECT_TRUE(encodeTXTRecord({{"k", std::string(253, 'x')}}));
  EXPECT_FALSE(encodeTXTRecord({{"k", std::string(254, 'x')}}));
}

TEST(TXTRecord, ARecordThatFitsNoPacketIsRefused) {
  Entries entries;
  for (char key = 'a'; key < 'a' + 6; ++key) entries[std::string(1, key)] = std::string(197, 'x');
  const auto fits = encodeTXTRecord(entries);  // 6 times 1 + 2 + 197
  ASSERT_TRUE(fits);
  EXPECT_EQ(fits->size(), maxTXTRecordSize);
  entries["a"] += "x";
  EXPECT_FALSE(encodeTXTRecord(entries));
}

}  // namespace
}  // namespace ferrox

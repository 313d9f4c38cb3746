#include <gtest/gtest.h>

#include <limits>

#include "Classes/Capabilities/PeerURLs.h"
#include "Platform/HTTP/Client/HTTPClientTarget.h"

namespace ferrox {
namespace {

std::optional<std::string> urlAt(std::string_view hostName, std::string_view port, std::string_view path) {
  return PeerURLs(hostName).url(port, path);
}

TEST(PeerURLs, HoldsHostPortAndPathAsTheyAre) {
  EXPECT_EQ(urlAt("MAC.LOCAL.", "16654", "/streams/cam%20A"), "http://MAC.LOCAL.:16654/streams/cam%20A");
  EXPECT_EQ(urlAt("10.0.0.7", "1", "/projects/P1"), "http://10.0.0.7:1/projects/P1");
  EXPECT_EQ(urlAt("HOST", "(null)", "/projects/P1"), "http://HOST:(null)/projects/P1");
  EXPECT_EQ(urlAt("HOST", "80", ""), "http://HOST:80");
  EXPECT_EQ(urlAt("HOST", "80", "/a?b=c&d"), "http://HOST:80/a?b=c&d");
}

TEST(PeerURLs, AnIPv6AddressGetsBracketsAndItsZoneIsEscaped) {
  EXPECT_EQ(urlAt("FE80::1", "1", "/a"), "http://[FE80::1]:1/a");
  EXPECT_EQ(urlAt("[FE80::1]", "1", "/a"), "http://[FE80::1]:1/a");
  EXPECT_EQ(urlAt("FE80::1%ETH0", "1", "/a"), "http://[FE80::1%25ETH0]:1/a");
  EXPECT_EQ(urlAt("[FE80::1%25ETH0]", "1", "/a"), "http://[FE80::1%25ETH0]:1/a");
}

TEST(PeerURLs, CanBeRequestedByTheHTTPClient) {
  const auto host = [](const std::string& hostName) -> std::string {
    const auto url = urlAt(hostName, "16654", "/streams/cam");
    if (!url) return "no URL";
    FRXError error;
    const auto target = targetOfURL(*url, &error);
    return target && target->port == 16654 ? target->host : *url + ": " + error.localizedDescription;
  };
  EXPECT_EQ(host("MAC.LOCAL."), "MAC.LOCAL.");
  EXPECT_EQ(host("M\xC3\x9CLLER.LOCAL."), "M\xC3\x9CLLER.LOCAL.");
  EXPECT_EQ(host("10.0.0.7"), "10.0.0.7");
  EXPECT_EQ(host("2001:DB8::7"), "2001:DB8::7");
  EXPECT_EQ(host("FE80::1%LO"), "FE80::1%LO");
}

TEST(PeerURLs, WhatMakesNoURLIsRefused) {
  for (const char* path : {"a",     "@evil/", ":1/",  "/a b",  "/a\tb", "/a\nb", "/a\x7F", "/\xC3\xA9",
                           "/\xFF", "/a\"",   "/<a>", "/a\\b", "/a^",   "/`",    "/{a}",   "/a|b",
                           "/[a]",  "/%",     "/%4",  "/%zz",  "/%4g",  "/a#b",  "?q"}) {
    EXPECT_EQ(urlAt("HOST", "1", path), std::nullopt) << path;
  }
  EXPECT_EQ(urlAt("HOST", "1", std::string("/a\0b", 4)), std::nullopt);
  EXPECT_EQ(urlAt("HOST", "1", "/" + std::string(8192, 'a')), std::nullopt);
}

TEST(PeerURLs, AHostThatWouldLeadElsewhereIsRefused) {
  for (const char* host :
       {"",         ".",        " ",           "a b",          "evil/", "me@evil", "a:b",
        "a#",       "a?",       "a%20",        "[10.0.0.7]",   "[MAC]", "[]",      "[FE80::1",
        "FE80::1]", "FE80::1%", "FE80::1%a/b", "[FE80::1%25]", "a\nb",  "\xFF"}) {
    EXPECT_EQ(urlAt(host, "1", "/a"), std::nullopt) << host;
  }
}

TEST(PeerURLs, PortsAreNumbersOrDigits) {
  const auto port = [](const FRXValue& value) { return portOfPeer(&value); };
  EXPECT_EQ(port(16654), "16654");
  EXPECT_EQ(port(0), "0");
  EXPECT_EQ(port(65535), "65535");
  EXPECT_EQ(port(16654.0), "16654");
  EXPECT_EQ(port("8080"), "8080");
  EXPECT_EQ(port("0008080"), "8080");
  EXPECT_EQ(portOfPeer(nullptr), "(null)");
  EXPECT_EQ(port(nullptr), "(null)");
}

TEST(PeerURLs, OtherValuesAreNoPorts) {
  for (const FRXValue& value :
       {FRXValue(-1), FRXValue(65536), FRXValue(std::numeric_limits<std::int64_t>::max()), FRXValue(16654.5),
        FRXValue(1e300), FRXValue(true), FRXValue(""), FRXValue("70000"), FRXValue("1a"), FRXValue(" 1"),
        FRXValue("-1"), FRXValue("1/@evil"), FRXValue(FRXArray{1}), FRXValue(FRXDictionary{})}) {
    EXPECT_EQ(portOfPeer(&value), std::nullopt);
  }
}

}  // namespace
}  // namespace ferrox

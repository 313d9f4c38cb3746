#include <gtest/gtest.h>

#include "Platform/WebSocket/WebSocketClient.h"
#include "Platform/WebSocket/WebSocketURL.h"

namespace ferrox::test {
namespace {

TEST(WebSocketURLTests, PartsAreTakenAsTheyStand) {
  const auto url = WebSocketURL::parse("ws://Edit-3.local.:16654/frxsocket?id=A%20B&x=1");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host, "Edit-3.local.");
  EXPECT_EQ(url->port, 16654);
  EXPECT_EQ(url->authority, "Edit-3.local.:16654");
  EXPECT_EQ(url->target, "/frxsocket?id=A%20B&x=1");
}

TEST(WebSocketURLTests, PortAndPathMayBeLeftOut) {
  const auto url = WebSocketURL::parse("WS://10.0.0.7?id=1");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host, "10.0.0.7");
  EXPECT_EQ(url->port, 80);
  EXPECT_EQ(url->authority, "10.0.0.7:80");
  EXPECT_EQ(url->target, "/?id=1");
}

TEST(WebSocketURLTests, IPv6LiteralsKeepTheirZoneForDiallingOnly) {
  for (const char* text : {"ws://[fe80::1%25eth0]:80/a", "ws://[fe80::1%eth0]/a"}) {
    const auto url = WebSocketURL::parse(text);
    ASSERT_TRUE(url) << text;
    EXPECT_EQ(url->host, "fe80::1%eth0");
    EXPECT_EQ(url->authority, "[fe80::1]:80");
    EXPECT_EQ(url->target, "/a");
  }
  EXPECT_EQ(WebSocketURL::parse("ws://[::1]:9/")->host, "::1");
}

TEST(WebSocketURLTests, CharactersBeyondAsciiAreEscapedOnTheWire) {
  const auto url = WebSocketURL::parse("ws://b\xC3\xBCro.local:1/\xC3\xA9?q=\xE2\x82\xAC");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host, "b\xC3\xBCro.local");
  EXPECT_EQ(url->authority, "b%C3%BCro.local:1");
  EXPECT_EQ(url->target, "/%C3%A9?q=%E2%82%AC");
}

TEST(WebSocketURLTests, WhatCannotBeOpenedIsRefusedWithAReason) {
  const std::string long63(64, 'a');
  for (const std::string& text : std::vector<std::string>{"",
                                                          "host",
                                                          "/path",
                                                          "ws:",
                                                          "ws:/host/",
                                                          "ws://",
                                                          "ws:///path",
                                                          "http://host/",
                                                          "wss://host/",
                                                          "file:///a",
                                                          "ws://user@host/",
                                                          "ws://user:word@host/",
                                                          "ws://@host/",
                                                          "ws://host/#part",
                                                          "ws://host:0/",
                                                          "ws://host:65536/",
                                                          "ws://host:99999999999/",
                                                          "ws://host:1a/",
                                                          "ws://ho st/",
                                                          "ws://host/a b",
                                                          "ws://host/\r\nX: y",
                                                          "ws://host/a\tb",
                                                          "ws://host/\x7F",
                                                          "ws://host/%0",
                                                          "ws://host/%zz",
                                                          "ws://ho%0D%0Ast/",
                                                          "ws://ho%00st/",
                                                          "ws://ho%20st/",
                                                          "ws://ho%FFst/",
                                                          "ws://a..b/",
                                                          "ws://" + long63 + "/",
                                                          "ws://[::1/",
                                                          "ws://[nonsense]/",
                                                          "ws://[fe80::1%]/",
                                                          "ws://[fe80::1%25]/",
                                                          "ws://[fe80::1%25a b]/",
                                                          "ws://[fe80::1%25a/b]/",
                                                          "ws://[v1.x]/",
                                                          "ws://host\\evil/",
                                                          "ws://host/\xFF",
                                                          "ws://host/\"",
                                                          std::string("ws://host/\0x", 12),
                                                          "ws://host/" + std::string(9000, 'x')}) {
    FRXError error;
    EXPECT_FALSE(WebSocketURL::parse(text, &error)) << text;
    EXPECT_EQ(error.domain, WebSocketClientErrorDomain) << text;
    EXPECT_EQ(error.code, WebSocketClientErrorBadURL) << text;
    EXPECT_FALSE(error.localizedDescription.empty()) << text;
  }
}

}  // namespace
}  // namespace ferrox::test
